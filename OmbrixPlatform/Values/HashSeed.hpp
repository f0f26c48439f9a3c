#pragma once

#include <cstdint>
#include <string_view>

namespace ombrix::platform {

/// Random numbers that a process mixes into its hashes, so that no outsider can choose keys that
/// collide.
struct HashSeed {
  std::uint64_t key;
  std::uint64_t multiplier;  ///< odd

  /// The process's own seed. Any thread.
  static const HashSeed& ofProcess();

  /// Mixes a hash into 32 bits. Equal hashes stay equal: the seed does not separate them.
  [[nodiscard]] std::uint32_t mix(std::uint64_t hash) const noexcept {
    return static_cast<std::uint32_t>(folded(hash ^ key, multiplier) >> 32);
  }

  /// A hash of a text that uses the seed in every step: without the seed, collisions cannot be
  /// predicted. For hash tables, not for signatures.
  [[nodiscard]] std::uint64_t ofText(std::string_view text) const noexcept;

 private:
  /// The two halves of a 128-bit product, folded into one.
  static std::uint64_t folded(std::uint64_t a, std::uint64_t b) noexcept {
    __extension__ using UInt128 = unsigned __int128;
    const UInt128 product = static_cast<UInt128>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }
};

}  // namespace ombrix::platform

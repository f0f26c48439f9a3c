#pragma once

#include <cstdint>

namespace ombrix::detail {

/// Random numbers that a process mixes into its hashes, so that nobody outside can choose keys that
/// fall on one place.
struct HashSeed {
  std::uint64_t key;
  std::uint64_t multiplier;  ///< odd

  /// The process's own seed. Any thread.
  static const HashSeed& ofProcess();

  /// Spreads a hash over 32 bits: the two halves of a product of 128 bits, folded.
  [[nodiscard]] std::uint32_t mix(std::uint64_t hash) const noexcept {
    __extension__ using UInt128 = unsigned __int128;
    const UInt128 product = static_cast<UInt128>(hash ^ key) * multiplier;
    const auto high = static_cast<std::uint64_t>(product >> 64);
    return static_cast<std::uint32_t>((static_cast<std::uint64_t>(product) ^ high) >> 32);
  }
};

}  // namespace ombrix::detail

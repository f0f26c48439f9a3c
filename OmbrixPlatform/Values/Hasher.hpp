#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace ombrix::platform {

/// Collects values into one hash; equal sequences of equal values give equal hashes in a process.
///
/// The result is for hash tables of this process, never for storage. One thread at a time.
class Hasher {
 public:
  /// Adds a value that `std::hash` supports.
  template <class Value>
  constexpr void combine(const Value& value) noexcept(noexcept(std::hash<Value>{}(value))) {
    // A multiply-xorshift round, since std::hash of an integer is the integer itself.
    state_ = (state_ ^ static_cast<std::uint64_t>(std::hash<Value>{}(value))) * kMultiplier;
    state_ ^= state_ >> 32;
  }

  /// The hash of all values added so far.
  [[nodiscard]] constexpr std::size_t finalize() const noexcept {
    const std::uint64_t mixed = (state_ ^ (state_ >> 29)) * kMultiplier;
    return static_cast<std::size_t>(mixed ^ (mixed >> 32));
  }

 private:
  static constexpr std::uint64_t kMultiplier = 0x9E37'79B9'7F4A'7C15U;
  std::uint64_t state_ = 0x243F'6A88'85A3'08D3U;
};

}  // namespace ombrix::platform

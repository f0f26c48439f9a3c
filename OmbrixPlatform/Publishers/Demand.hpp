#pragma once

#include <cstdint>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {

/// How many values a subscriber is ready to take; once unlimited, it stays unlimited.
class Demand {
 public:
  /// A number of values, 0 or more.
  static constexpr Demand max(std::int64_t count) {
    if (count < 0) fatalError("demand must not be negative");
    return Demand(static_cast<std::uint64_t>(count));
  }
  static constexpr Demand none() { return Demand(0); }
  static constexpr Demand unlimited() { return Demand(kUnlimited); }

  [[nodiscard]] constexpr bool isNone() const { return count_ == 0; }
  [[nodiscard]] constexpr bool isUnlimited() const { return count_ == kUnlimited; }

  /// Adds the other demand; becomes unlimited instead of overflowing.
  constexpr Demand& operator+=(Demand other) {
    count_ = count_ > kUnlimited - other.count_ ? kUnlimited : count_ + other.count_;
    return *this;
  }

  /// Uses up one value; false when there is no demand left.
  constexpr bool takeOne() {
    if (isNone()) return false;
    if (!isUnlimited()) --count_;
    return true;
  }

  friend constexpr bool operator==(Demand, Demand) = default;

 private:
  static constexpr std::uint64_t kUnlimited = UINT64_MAX;

  explicit constexpr Demand(std::uint64_t count) : count_(count) {}

  std::uint64_t count_;
};

}  // namespace ombrix::platform

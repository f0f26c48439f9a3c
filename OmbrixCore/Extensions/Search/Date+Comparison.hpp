#pragma once

#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix {

// Each comparison has three outcomes: before, after, or neither. A date that is not a number is
// neither before nor after, so it counts as equal to every other.

constexpr bool isLaterThan(platform::Date date, platform::Date other) noexcept {
  return date > other;
}

constexpr bool isEarlierThan(platform::Date date, platform::Date other) noexcept {
  return date < other;
}

constexpr bool isLaterThanOrEqualTo(platform::Date date, platform::Date other) noexcept {
  return !isEarlierThan(date, other);
}

constexpr bool isEarlierThanOrEqualTo(platform::Date date, platform::Date other) noexcept {
  return !isLaterThan(date, other);
}

}  // namespace ombrix

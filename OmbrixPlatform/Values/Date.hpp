#pragma once

#include <chrono>

namespace ombrix::platform {

/// A span of time in seconds.
using TimeInterval = std::chrono::duration<double>;

/// A point in time: seconds since 1970-01-01 00:00:00 UTC, as a 64-bit floating-point number.
using Date = std::chrono::sys_time<TimeInterval>;

/// Seconds from 1970-01-01 to 2001-01-01 UTC, the epoch of property-list and default JSON dates.
inline constexpr double kSecondsFrom1970To2001 = 978'307'200.0;

constexpr Date dateSince1970(double seconds) noexcept { return Date{TimeInterval{seconds}}; }
constexpr double timeIntervalSince1970(Date date) noexcept {
  return date.time_since_epoch().count();
}

constexpr Date dateSinceReferenceDate(double seconds) noexcept {
  return dateSince1970(seconds + kSecondsFrom1970To2001);
}
constexpr double timeIntervalSinceReferenceDate(Date date) noexcept {
  return timeIntervalSince1970(date) - kSecondsFrom1970To2001;
}

}  // namespace ombrix::platform

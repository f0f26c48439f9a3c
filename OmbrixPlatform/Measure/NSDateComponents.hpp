#pragma once

#include <cstdint>
#include <optional>

namespace ombrix::platform {

/// A set of calendar units, one bit each.
enum class NSCalendarUnit : std::uint64_t {
  year = 4,
  month = 8,
  day = 16,
  hour = 32,
  minute = 64,
  second = 128,
};

constexpr NSCalendarUnit operator|(NSCalendarUnit a, NSCalendarUnit b) noexcept {
  const auto bits = static_cast<std::uint64_t>(a) | static_cast<std::uint64_t>(b);
  return static_cast<NSCalendarUnit>(bits);  // NOLINT(clang-analyzer-optin.core.EnumCastOutOfRange)
}

/// Whether `units` holds `unit`.
constexpr bool contains(NSCalendarUnit units, NSCalendarUnit unit) noexcept {
  return (static_cast<std::uint64_t>(units) & static_cast<std::uint64_t>(unit)) != 0;
}

/// A time span in parts; an empty part is absent, which differs from zero.
struct NSDateComponents {
  std::optional<std::int64_t> day;
  std::optional<std::int64_t> hour;
  std::optional<std::int64_t> minute;
  std::optional<std::int64_t> second;

  friend bool operator==(const NSDateComponents&, const NSDateComponents&) = default;
};

}  // namespace ombrix::platform

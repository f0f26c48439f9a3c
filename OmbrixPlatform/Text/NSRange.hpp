#pragma once

#include <cstddef>
#include <limits>

namespace ombrix::platform {

/// The location of what was not found.
inline constexpr std::size_t NSNotFound = std::numeric_limits<std::size_t>::max();

/// A stretch of a text, in UTF-16 units.
struct NSRange {
  std::size_t location = 0;
  std::size_t length = 0;

  [[nodiscard]] constexpr std::size_t end() const noexcept { return location + length; }

  /// Whether the range is a place in a text of `total` units.
  [[nodiscard]] constexpr bool liesInside(std::size_t total) const noexcept {
    return location <= total && length <= total - location;
  }

  friend constexpr bool operator==(NSRange, NSRange) = default;
};

}  // namespace ombrix::platform

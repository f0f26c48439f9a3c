#pragma once

#include <cstddef>
#include <limits>

namespace ombrix::platform {

/// The location that means "not found".
inline constexpr std::size_t NSNotFound = std::numeric_limits<std::size_t>::max();

/// A range of a text, in UTF-16 units.
struct NSRange {
  std::size_t location = 0;
  std::size_t length = 0;

  [[nodiscard]] constexpr std::size_t end() const noexcept { return location + length; }

  /// Whether the range lies inside a text of `total` units.
  [[nodiscard]] constexpr bool liesInside(std::size_t total) const noexcept {
    return location <= total && length <= total - location;
  }

  friend constexpr bool operator==(NSRange, NSRange) = default;
};

}  // namespace ombrix::platform

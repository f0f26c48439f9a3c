#pragma once

#include <concepts>
#include <limits>
#include <optional>

namespace ombrix::platform::detail {

/// The integer that exactly equals a double; empty for fractions and for numbers that do not fit.
template <std::integral T>
std::optional<T> exactly(double value) noexcept {
  // 2 to the number of value bits: the first whole number above the range, exact as a double.
  constexpr double kAbove = 2.0 * static_cast<double>(T{1} << (std::numeric_limits<T>::digits - 1));
  const double least = std::signed_integral<T> ? -kAbove : 0.0;
  if (!(value >= least && value < kAbove)) return std::nullopt;
  const T whole = static_cast<T>(value);
  if (static_cast<double>(whole) != value) return std::nullopt;
  return whole;
}

/// Writes the shortest decimal that reads back as a finite value, as `std::to_chars` does, and
/// returns its end; `out` has room for 32 characters.
char* putShortest(char* out, double value) noexcept;

}  // namespace ombrix::platform::detail

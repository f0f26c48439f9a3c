#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ombrix::platform {

/// Reads the number that the whole text names, independent of any locale.
///
/// @param text  an optional sign, digits with at most one "." among, before or after them, and an
///   optional exponent ("e" or "E", optional sign, digits); or "nan", "inf" or "infinity" in any
///   case, with an optional sign
/// @return the double nearest to the decimal, ties to even, taking every digit into account;
///   infinity above the range and zero below it. Empty for any other text: an empty one, one with
///   white space anywhere, or one with more text after the number.
/// Any thread.
[[nodiscard]] std::optional<double> doubleFromText(std::string_view text) noexcept;

/// Writes numbers with a fixed number of fraction digits, truncated towards zero, "." as the
/// decimal separator, "-" for negatives (negative zero included), no grouping, one leading zero.
///
/// Truncates the number as people write it: if a decimal of at most 15 significant digits maps to
/// the same double, that decimal is truncated, otherwise the exact binary value. So 46.123456,
/// which is stored slightly smaller, is written "46.123456", and writing a number that was read
/// never drifts. One limit: a time with microseconds has 16 digits, so it may lose one microsecond
/// when it is written again; whole seconds and milliseconds never change.
///
/// Immutable. Any thread.
class TruncatingNumberFormat {
 public:
  static constexpr int kMaximumFractionDigits = 9;

  /// The space that `write` needs, including scratch bytes after a short text.
  static constexpr std::size_t kRequiredBytes = 352;

  /// @param fractionDigits  0 to `kMaximumFractionDigits`
  explicit constexpr TruncatingNumberFormat(int fractionDigits) noexcept
      : fractionDigits_(fractionDigits) {}

  [[nodiscard]] constexpr int fractionDigits() const noexcept { return fractionDigits_; }

  /// Writes the text of `value` to `out`, which must have space for `kRequiredBytes`.
  ///
  /// @return the end of the text; null for a number that is not finite
  char* write(double value, char* out) const noexcept;

  /// The text of `value`; empty for a number that is not finite.
  [[nodiscard]] std::optional<std::string> string(double value) const;

 private:
  int fractionDigits_;
};

}  // namespace ombrix::platform

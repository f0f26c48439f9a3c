#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ombrix::platform {

/// The number that a whole text names, independent of any locale.
///
/// @param text  an optional sign, digits with at most one "." among, before or behind them, and an
///              optional exponent ("e" or "E", optional sign, digits); or "nan", "inf" or
///              "infinity" in any case, with an optional sign
/// @return the double nearest to the decimal, ties to even: every digit counts, however many there
///         are; infinity above the range and zero below it. Nothing when the text is anything
///         else: empty, with white space anywhere, or with something behind the number.
/// Any thread.
[[nodiscard]] std::optional<double> doubleFromText(std::string_view text) noexcept;

/// Writes numbers with a fixed count of fraction digits, cut towards zero, "." as the decimal
/// separator, "-" for negatives (negative zero included), no grouping, one leading zero.
///
/// What is cut is the number as people write it: when a decimal of at most 15 significant digits
/// names the same double, that decimal is cut, otherwise the exact binary value. So 46.123456,
/// stored a little below, is written "46.123456", and writing what was read never drifts. One
/// limit: a time with microseconds has 16 digits, so it may lose one microsecond when it is written
/// again; whole seconds and milliseconds never change.
///
/// Immutable. Any thread.
class TruncatingNumberFormat {
 public:
  static constexpr int kMaximumFractionDigits = 9;

  /// Room that `write` needs, the scratch bytes behind a short text included.
  static constexpr std::size_t kRequiredBytes = 352;

  /// @param fractionDigits  0 to `kMaximumFractionDigits`
  explicit constexpr TruncatingNumberFormat(int fractionDigits) noexcept
      : fractionDigits_(fractionDigits) {}

  [[nodiscard]] constexpr int fractionDigits() const noexcept { return fractionDigits_; }

  /// Writes the text of `value` to `out`, which has room for `kRequiredBytes`.
  ///
  /// @return the end of the text; null for a number that is not finite, which has no text
  char* write(double value, char* out) const noexcept;

  /// The text of `value`; nothing for a number that is not finite.
  [[nodiscard]] std::optional<std::string> string(double value) const;

 private:
  int fractionDigits_;
};

}  // namespace ombrix::platform

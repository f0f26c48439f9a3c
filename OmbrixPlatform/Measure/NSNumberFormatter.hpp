#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix::platform {

namespace detail {
class IcuNumberFormat;
}

/// Which way a digit that is cut off counts. Both work on the shortest decimal that names the
/// number, so 2.675 rounds half up to 2.68.
enum class NSNumberFormatterRoundingMode { halfEven, halfUp, down };

/// Writes and reads decimal numbers in the way of a locale.
///
/// Immutable: made from its settings, shared and used by any number of threads. Formatters of
/// equal settings share one set of tables, which is made once per process.
class NSNumberFormatter {
 public:
  struct Settings {
    Locale locale = Locale::current();
    int minimumFractionDigits = 0;
    int maximumFractionDigits = 0;
    NSNumberFormatterRoundingMode roundingMode = NSNumberFormatterRoundingMode::halfEven;
    std::string positiveSuffix;                    ///< Behind the digits of numbers not below zero.
    std::optional<std::string> decimalSeparator;   ///< The locale's own when absent.
    std::optional<std::string> groupingSeparator;  ///< The locale's own when absent.

    friend bool operator==(const Settings&, const Settings&) = default;
  };

  explicit NSNumberFormatter(Settings settings);

  [[nodiscard]] const Settings& settings() const noexcept { return settings_; }

  /// The number's text in UTF-8; nothing when the locale data is missing altogether.
  [[nodiscard]] std::optional<std::string> string(double number) const;

  /// The number that a text names, in the locale's way of writing; nothing unless the whole text
  /// is a number.
  [[nodiscard]] std::optional<double> number(std::string_view text) const;

 private:
  friend class NSMeasurementFormatter;

  Settings settings_;
  std::shared_ptr<const detail::IcuNumberFormat> format_;  // null when it could not be made
};

}  // namespace ombrix::platform

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

/// How digits are cut off. All modes work on the shortest decimal that identifies the number, so
/// half up rounds 2.675 to 2.68.
enum class NSNumberFormatterRoundingMode { halfEven, halfUp, down };

/// Writes and reads decimal numbers, following a locale.
///
/// Immutable: built from its settings and used by any number of threads. Formatters with equal
/// settings share one set of tables, which is created once per process.
class NSNumberFormatter {
 public:
  struct Settings {
    Locale locale = Locale::current();
    int minimumFractionDigits = 0;
    int maximumFractionDigits = 0;
    NSNumberFormatterRoundingMode roundingMode = NSNumberFormatterRoundingMode::halfEven;
    std::string positiveSuffix;                    ///< After the digits of numbers >= 0.
    std::optional<std::string> decimalSeparator;   ///< The locale's own when absent.
    std::optional<std::string> groupingSeparator;  ///< The locale's own when absent.

    friend bool operator==(const Settings&, const Settings&) = default;
  };

  explicit NSNumberFormatter(Settings settings);

  [[nodiscard]] const Settings& settings() const noexcept { return settings_; }

  /// The number's text in UTF-8; empty when the locale data is missing altogether.
  [[nodiscard]] std::optional<std::string> string(double number) const;

  /// The number that a text names in the locale's notation; empty unless the whole text is a
  /// number.
  [[nodiscard]] std::optional<double> number(std::string_view text) const;

 private:
  friend class NSMeasurementFormatter;

  Settings settings_;
  std::shared_ptr<const detail::IcuNumberFormat> format_;  // null when ICU could not create it
};

}  // namespace ombrix::platform

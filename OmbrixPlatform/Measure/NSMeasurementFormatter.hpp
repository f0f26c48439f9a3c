#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Measure/Measurement.hpp"
#include "OmbrixPlatform/Measure/NSFormatter.hpp"
#include "OmbrixPlatform/Measure/NSNumberFormatter.hpp"

namespace ombrix::platform {

namespace detail {
struct IcuUnitFormat;
}

/// How much of a unit's name is written: "′", "ft", "feet". `mediumStyle` writes a short symbol,
/// `shortStyle` the shortest one.
enum class NSFormattingUnitStyle { shortStyle = 1, mediumStyle = 2, longStyle = 3 };

/// Writes measurements: a number and its unit, following the number formatter's locale. It always
/// uses the given unit, whatever the locale.
///
/// A unit that locale data does not name is written as the number, one space and its symbol. An
/// instance serves one thread at a time.
class NSMeasurementFormatter final : public NSFormatter {
 public:
  NSMeasurementFormatter(NSFormattingUnitStyle unitStyle, NSNumberFormatter numberFormatter);

  [[nodiscard]] NSFormattingUnitStyle unitStyle() const noexcept { return unitStyle_; }
  void setUnitStyle(NSFormattingUnitStyle style);

  [[nodiscard]] const NSNumberFormatter& numberFormatter() const noexcept {
    return numberFormatter_;
  }
  void setNumberFormatter(NSNumberFormatter formatter);

  /// The measurement's text in UTF-8; empty when the locale data is missing altogether. A number
  /// with a fraction is always written.
  std::optional<std::string> string(double value, const NSDimension& unit);
  template <class Unit>
  std::optional<std::string> string(const Measurement<Unit>& measurement) {
    return string(measurement.value, measurement.unit);
  }
  /// The text of an abbreviated value, such as 12.3 for 12,345: plural form and order of number and
  /// unit follow the whole value. The number is always written, even in languages that have a
  /// single word for one foot or two feet.
  std::optional<std::string> string(double value, const NSDimension& unit, double wholeValue);
  /// The same for an object that holds a measurement; empty for any other.
  std::optional<std::string> string(const FormatterObject& object) override;

  /// Reads a number as the number formatter writes it and returns it in `unit`; for any other text,
  /// returns a sentence about it.
  [[nodiscard]] std::expected<AnyMeasurement, std::string> getObjectValue(
      std::string_view text, const AnyUnit& unit) const;

 private:
  // A unit that was used before, with its formatter, which the number formatter keeps alive.
  struct KnownUnit {
    std::string_view identifier;
    const detail::IcuUnitFormat* format;
  };
  const detail::IcuUnitFormat* format(std::string_view identifier);
  /// The text of a value with its number, in the pattern of the whole value; empty where the
  /// language knows no pattern with a number.
  [[nodiscard]] std::optional<std::string> numberedText(const detail::IcuUnitFormat& unit,
                                                        double value, double wholeValue) const;

  NSFormattingUnitStyle unitStyle_;
  NSNumberFormatter numberFormatter_;
  std::vector<KnownUnit> knownUnits_;  // usually one or two per instance
};

}  // namespace ombrix::platform

#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Measure/NSFormatter.hpp"
#include "OmbrixPlatform/Measure/NSMeasurementFormatter.hpp"
#include "OmbrixPlatform/Text/NSAttributedString.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix::platform {
class Decoder;
}

namespace ombrix {

/// Turns one value of a known kind into display text in the user's unit system, which is read from
/// the settings on every call.
///
/// An instance serves one thread at a time. Its inner formatters are costly to build, so each is
/// made once, on first need; it keeps the locale that was current then, unless one is set.
class OmbrixMeasurementFormatter final : public platform::NSFormatter {
 public:
  /// How much of the unit is written; `valueOnly` is the number alone.
  enum class UnitStyle : int { valueOnly = 0, shortStyle = 1, mediumStyle = 2, longStyle = 3 };

  /// The kinds of values.
  enum class MeasurementFormat : int {
    speed = 0,
    distance = 1,
    altitude = 2,
    vertical = 3,
    altitudeChange = 4,
    totalVertical = 5,
    seasonVertical = 6,
    dailyVertical = 7,
    weight = 8,
    energy = 9,
    heartRate = 10,
    depth = 11,
    temperature = 12,
    angle = 13,
  };

  using Attributes = platform::NSAttributedString::Attributes;

  /// A formatter of speeds with one fraction digit.
  OmbrixMeasurementFormatter() = default;

  /// A formatter of one kind of values: speeds and distances with one fraction digit, all others
  /// with none.
  explicit OmbrixMeasurementFormatter(MeasurementFormat format);

  /// A formatter as the first one; nothing is read.
  static OmbrixMeasurementFormatter decode(platform::Decoder& decoder);

  [[nodiscard]] MeasurementFormat format() const noexcept { return format_; }

  /// `mediumStyle` until set. A style out of range stops the program.
  [[nodiscard]] UnitStyle unitStyle() const noexcept { return unitStyle_; }
  void setUnitStyle(UnitStyle style);

  /// The locale to write in, its language for all texts included, which also chooses the units of
  /// weights and temperatures; when nothing was set, the one that is current when an inner
  /// formatter is first needed, and the user's languages.
  [[nodiscard]] const std::optional<platform::Locale>& locale() const noexcept { return locale_; }
  void setLocale(std::optional<platform::Locale> locale);

  /// The unit in which a kind of values is shown in a unit system, as in "miles", in the current
  /// locale or another. A format out of range stops the program. Any thread.
  static platform::AnyUnit localizedUnit(
      MeasurementFormat format, std::string_view preference,
      const std::optional<platform::Locale>& locale = std::nullopt);

  /// The value's text, in capitals unless it is a number alone.
  ///
  /// @param object A measurement of the format's dimension, or a number, which is taken in meters
  ///   per second, meters (depth: centimeters), kilograms, kilocalories, beats per minute, degrees
  ///   Celsius or degrees.
  /// @return Nothing for any other object. Large vertical sums in feet are abbreviated: "12.3K FT".
  std::optional<std::string> string(const platform::FormatterObject& object) override;

  /// The value's text, styled by the shared value formatter; nothing where `string` has none.
  std::optional<platform::NSAttributedString> attributedStringWithDefaultAttributes(
      const platform::FormatterObject& object, const Attributes& attributes);
  std::optional<platform::NSAttributedString> attributedStringWithValueAttributes(
      const platform::FormatterObject& object, const Attributes& valueAttributes,
      const Attributes& unitLabelAttributes);

  /// Reads a number as the current locale writes it and gives it in the display unit, or a
  /// sentence about the text that is not a number.
  std::expected<platform::AnyMeasurement, std::string> getObjectValue(std::string_view text);

  /// The unit alone, as in "km/h"; nothing for temperatures.
  std::optional<std::string> unitLabel();

  /// The same. The unit system is the current one, whatever the argument says.
  std::optional<std::string> unitLabel(std::string_view preference);

 private:
  using Formatter = platform::NSMeasurementFormatter;

  platform::NSFormattingUnitStyle platformUnitStyle() const;
  [[nodiscard]] platform::Locale usedLocale() const;
  [[nodiscard]] platform::AnyUnit displayUnit() const;
  Formatter& millions();
  Formatter& thousands();
  Formatter& roundedDailyThousands();
  Formatter& measurements();
  Formatter& units();

  template <class Unit>
  std::optional<std::string> text(const platform::Measurement<Unit>& measurement);
  template <class Unit>
  Formatter& formatterFor(const Unit& unit, double& value);

  std::optional<platform::Locale> locale_;
  UnitStyle unitStyle_ = UnitStyle::mediumStyle;
  MeasurementFormat format_ = MeasurementFormat::speed;
  int fractionDigits_ = 1;
  std::optional<Formatter> cachedMillionsNumberMeasurementFormatter_;
  std::optional<Formatter> cachedThousandsNumberMeasurementFormatter_;
  std::optional<Formatter> cachedRoundedDailyThousandsNumberMeasurementFormatter_;
  std::optional<Formatter> cachedMeasurementFormatter_;
  std::optional<Formatter> cachedUnitFormatter_;
};

}  // namespace ombrix

template <>
struct ombrix::platform::RawValues<ombrix::OmbrixMeasurementFormatter::UnitStyle> {
  using enum OmbrixMeasurementFormatter::UnitStyle;
  static constexpr std::pair<OmbrixMeasurementFormatter::UnitStyle, int> table[] = {
      {valueOnly, 0}, {shortStyle, 1}, {mediumStyle, 2}, {longStyle, 3}};
};

template <>
struct ombrix::platform::RawValues<ombrix::OmbrixMeasurementFormatter::MeasurementFormat> {
  using enum OmbrixMeasurementFormatter::MeasurementFormat;
  static constexpr std::pair<OmbrixMeasurementFormatter::MeasurementFormat, int> table[] = {
      {speed, 0},          {distance, 1},      {altitude, 2},       {vertical, 3},
      {altitudeChange, 4}, {totalVertical, 5}, {seasonVertical, 6}, {dailyVertical, 7},
      {weight, 8},         {energy, 9},        {heartRate, 10},     {depth, 11},
      {temperature, 12},   {angle, 13},
  };
};

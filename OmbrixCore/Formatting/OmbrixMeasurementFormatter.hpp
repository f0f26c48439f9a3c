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

/// Turns a value of a known kind into display text in the user's unit system, which is read from
/// the settings on every call.
///
/// An instance serves one thread at a time. Its inner formatters are slow to create, so each is
/// created once, on first use; it keeps the locale that was current then, unless one is set.
///
///     OmbrixMeasurementFormatter speed(OmbrixMeasurementFormatter::MeasurementFormat::speed);
///     const auto text = speed.string(12.5);
class OmbrixMeasurementFormatter final : public platform::NSFormatter {
 public:
  /// How much of the unit is written; `valueOnly` writes only the number.
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

  /// A formatter for speeds with one fraction digit.
  OmbrixMeasurementFormatter() = default;

  /// A formatter for one kind of value, with one fraction digit for speeds and distances and none
  /// for all others.
  explicit OmbrixMeasurementFormatter(MeasurementFormat format);

  /// A formatter like the default one; reads nothing from the decoder.
  static OmbrixMeasurementFormatter decode(platform::Decoder& decoder);

  [[nodiscard]] MeasurementFormat format() const noexcept { return format_; }

  /// `mediumStyle` until set. A style out of range stops the program.
  [[nodiscard]] UnitStyle unitStyle() const noexcept { return unitStyle_; }
  void setUnitStyle(UnitStyle style);

  /// The locale to write in, which determines the language of all texts and the units of weights
  /// and temperatures. If none is set: the locale that is current when an inner formatter is first
  /// used, and the user's languages.
  [[nodiscard]] const std::optional<platform::Locale>& locale() const noexcept { return locale_; }
  void setLocale(std::optional<platform::Locale> locale);

  /// The display unit of a kind of value in a unit system such as "miles", for the current or
  /// another locale. A format out of range stops the program. Any thread.
  static platform::AnyUnit localizedUnit(
      MeasurementFormat format, std::string_view preference,
      const std::optional<platform::Locale>& locale = std::nullopt);

  /// The value's text, in capitals unless it is only a number.
  ///
  /// @param object A measurement of the format's dimension, or a number in meters per second,
  ///   meters (depth: centimeters), kilograms, kilocalories, beats per minute, degrees Celsius or
  ///   degrees.
  /// @return Empty for any other object. Large vertical sums in feet are abbreviated: "12.3K FT".
  std::optional<std::string> string(const platform::FormatterObject& object) override;

  /// The value's text, styled by the shared value formatter; empty where `string` is empty.
  std::optional<platform::NSAttributedString> attributedStringWithDefaultAttributes(
      const platform::FormatterObject& object, const Attributes& attributes);
  std::optional<platform::NSAttributedString> attributedStringWithValueAttributes(
      const platform::FormatterObject& object, const Attributes& valueAttributes,
      const Attributes& unitLabelAttributes);

  /// Reads a number in the current locale's notation and returns it in the display unit; for a text
  /// that is not a number, returns a sentence about it.
  std::expected<platform::AnyMeasurement, std::string> getObjectValue(std::string_view text);

  /// The unit alone, such as "km/h"; empty for temperatures.
  std::optional<std::string> unitLabel();

  /// The same. Ignores the argument: the unit system is always the current one.
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

#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"

#include <type_traits>
#include <variant>

#include "OmbrixCore/Extensions/ResourceBundle.hpp"
#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"
#include "OmbrixPlatform/Text/CharacterSet.hpp"
#include "OmbrixPlatform/Text/LetterCase.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {
namespace {

using platform::AnyUnit;
using platform::CharacterSet;
using platform::FormatterObject;
using platform::Locale;
using platform::Measurement;
using platform::NSAttributedString;
using platform::NSFormattingUnitStyle;
using platform::NSMeasurementFormatter;
using platform::NSNumberFormatter;
using platform::NSUnitAngle;
using platform::NSUnitEnergy;
using platform::NSUnitFrequency;
using platform::NSUnitLength;
using platform::NSUnitMass;
using platform::NSUnitSpeed;
using platform::NSUnitTemperature;
using Format = OmbrixMeasurementFormatter::MeasurementFormat;
using UnitStyle = OmbrixMeasurementFormatter::UnitStyle;
using Rounding = platform::NSNumberFormatterRoundingMode;

[[noreturn]] void stopAtUnexpected(const char* enumeration, int raw) {
  platform::fatalError(std::string("unexpected enum case '") + enumeration +
                       "(rawValue: " + std::to_string(raw) + ")'");
}

/// The unit of a bare number in a format.
AnyUnit inputUnit(Format format) {
  switch (format) {
    case Format::speed:
      return NSUnitSpeed::metersPerSecond();
    case Format::distance:
    case Format::altitude:
    case Format::vertical:
    case Format::altitudeChange:
    case Format::totalVertical:
    case Format::seasonVertical:
    case Format::dailyVertical:
      return NSUnitLength::meters();
    case Format::weight:
      return NSUnitMass::kilograms();
    case Format::energy:
      return NSUnitEnergy::kilocalories();
    case Format::heartRate:
      return beatsPerMinute();
    case Format::depth:
      return NSUnitLength::centimeters();
    case Format::temperature:
      return NSUnitTemperature::celsius();
    case Format::angle:
      return NSUnitAngle::degrees();
  }
  stopAtUnexpected("MeasurementFormat", std::to_underlying(format));
}

template <class Unit>
std::optional<Measurement<Unit>> read(const FormatterObject& object, const Unit& unitOfNumbers) {
  if (const auto* measurement = object.measurement<Unit>()) return *measurement;
  if (const double* number = object.number()) return Measurement<Unit>{*number, unitOfNumbers};
  return std::nullopt;
}

NSNumberFormatter roundingDown(Locale locale, int fractionDigits, std::string suffix) {
  return NSNumberFormatter({.locale = std::move(locale),
                            .minimumFractionDigits = fractionDigits,
                            .maximumFractionDigits = fractionDigits,
                            .roundingMode = Rounding::down,
                            .positiveSuffix = std::move(suffix)});
}

/// The abbreviation of thousands.
std::string thousandsSuffix(const std::optional<Locale>& locale) {
  return localizedString("units.abbreviate_thousands", "k", locale);
}

/// The abbreviation of millions. English "mil" reads as a thousand in Galician, and as ten
/// kilometers in Swedish: languages that the library has no texts in get one that means the same
/// in all.
std::string millionsSuffix(const Locale& used, const std::optional<Locale>& locale) {
  constexpr std::string_view kEnglish = "mil";
  auto suffix = localizedString("units.abbreviate_millions", kEnglish, locale);
  return suffix == kEnglish && used.languageCode() != "en" ? "M" : suffix;
}

/// The unit as a formatter with its own locale names it: the platform names its own units, and
/// beats per minute have a symbol per language.
template <class Unit>
Unit named(const Unit& unit, const std::optional<Locale>& locale) {
  if constexpr (std::is_same_v<Unit, NSUnitFrequency>) {
    if (locale && unit == beatsPerMinute()) return beatsPerMinute(*locale);
  }
  return unit;
}

}  // namespace

OmbrixMeasurementFormatter::OmbrixMeasurementFormatter(MeasurementFormat format)
    : format_(format),
      fractionDigits_(format == Format::speed || format == Format::distance ? 1 : 0) {
  measurements();
}

OmbrixMeasurementFormatter OmbrixMeasurementFormatter::decode(platform::Decoder&) {
  return OmbrixMeasurementFormatter();
}

AnyUnit OmbrixMeasurementFormatter::localizedUnit(MeasurementFormat format,
                                                  std::string_view preference,
                                                  const std::optional<Locale>& locale) {
  switch (format) {
    case Format::speed:
      return localized<NSUnitSpeed>(preference);
    case Format::distance:
      return localized(SkiMeasurement::distance, preference);
    case Format::altitude:
      return localized(SkiMeasurement::altitude, preference);
    case Format::vertical:
      return localized(SkiMeasurement::vertical, preference);
    case Format::altitudeChange:
      return localized(SkiMeasurement::altitudeChange, preference);
    case Format::totalVertical:
      return localized(SkiMeasurement::totalVertical, preference);
    case Format::seasonVertical:
      return localized(SkiMeasurement::seasonVertical, preference);
    case Format::dailyVertical:
      return localized(SkiMeasurement::dailyVertical, preference);
    case Format::weight:
      return locale ? NSUnitMass::forLocale(*locale, NSUnitMass::Usage::personWeight)
                    : localized<NSUnitMass>(preference);
    case Format::energy:
      return localized<NSUnitEnergy>(preference);
    case Format::heartRate:
      return localized<NSUnitFrequency>(preference);
    case Format::depth:
      return localized(SkiMeasurement::depth, preference);
    case Format::temperature:
      return locale ? NSUnitTemperature::forLocale(*locale, NSUnitTemperature::Usage::weather)
                    : localized<NSUnitTemperature>(preference);
    case Format::angle:
      return NSUnitAngle::degrees();
  }
  stopAtUnexpected("MeasurementFormat", std::to_underlying(format));
}

NSFormattingUnitStyle OmbrixMeasurementFormatter::platformUnitStyle() const {
  switch (unitStyle_) {
    case UnitStyle::shortStyle:
      return NSFormattingUnitStyle::shortStyle;
    case UnitStyle::valueOnly:
    case UnitStyle::mediumStyle:
      return NSFormattingUnitStyle::mediumStyle;
    case UnitStyle::longStyle:
      return NSFormattingUnitStyle::longStyle;
  }
  stopAtUnexpected("UnitStyle", std::to_underlying(unitStyle_));
}

Locale OmbrixMeasurementFormatter::usedLocale() const {
  return locale_ ? *locale_ : Locale::current();
}

AnyUnit OmbrixMeasurementFormatter::displayUnit() const {
  return localizedUnit(format_, unitPreference(), locale_);
}

void OmbrixMeasurementFormatter::setLocale(std::optional<Locale> locale) {
  locale_ = std::move(locale);
  cachedMillionsNumberMeasurementFormatter_.reset();
  cachedThousandsNumberMeasurementFormatter_.reset();
  cachedRoundedDailyThousandsNumberMeasurementFormatter_.reset();
  cachedMeasurementFormatter_.reset();
  cachedUnitFormatter_.reset();
}

void OmbrixMeasurementFormatter::setUnitStyle(UnitStyle style) {
  unitStyle_ = style;
  const NSFormattingUnitStyle platformStyle = platformUnitStyle();
  // Kept: the rounded daily thousands formatter stays in the style it was made with; with the new
  // one, daily sums would change their look after the first was shown.
  millions().setUnitStyle(platformStyle);
  thousands().setUnitStyle(platformStyle);
  measurements().setUnitStyle(platformStyle);
  units().setUnitStyle(platformStyle);
}

NSMeasurementFormatter& OmbrixMeasurementFormatter::millions() {
  auto& cached = cachedMillionsNumberMeasurementFormatter_;
  if (!cached) {
    cached.emplace(platformUnitStyle(),
                   roundingDown(usedLocale(), 1, millionsSuffix(usedLocale(), locale_)));
  }
  return *cached;
}

NSMeasurementFormatter& OmbrixMeasurementFormatter::thousands() {
  auto& cached = cachedThousandsNumberMeasurementFormatter_;
  if (!cached)
    cached.emplace(platformUnitStyle(), roundingDown(usedLocale(), 1, thousandsSuffix(locale_)));
  return *cached;
}

NSMeasurementFormatter& OmbrixMeasurementFormatter::roundedDailyThousands() {
  auto& cached = cachedRoundedDailyThousandsNumberMeasurementFormatter_;
  if (!cached)
    cached.emplace(platformUnitStyle(), roundingDown(usedLocale(), 0, thousandsSuffix(locale_)));
  return *cached;
}

NSMeasurementFormatter& OmbrixMeasurementFormatter::measurements() {
  auto& cached = cachedMeasurementFormatter_;
  if (!cached) {
    cached.emplace(platformUnitStyle(), NSNumberFormatter({.locale = usedLocale(),
                                                           .minimumFractionDigits = fractionDigits_,
                                                           .maximumFractionDigits = fractionDigits_,
                                                           .roundingMode = Rounding::halfUp}));
  }
  return *cached;
}

NSMeasurementFormatter& OmbrixMeasurementFormatter::units() {
  auto& cached = cachedUnitFormatter_;
  if (!cached) {
    cached.emplace(platformUnitStyle(),
                   NSNumberFormatter(
                       {.locale = usedLocale(), .decimalSeparator = "", .groupingSeparator = ""}));
  }
  return *cached;
}

/// The formatter for a value in its display unit. Abbreviates vertical sums in feet, but not in
/// meters, and divides the value to match.
template <class Unit>
NSMeasurementFormatter& OmbrixMeasurementFormatter::formatterFor(const Unit& unit, double& value) {
  if constexpr (std::is_same_v<Unit, NSUnitLength>) {
    const bool isSum = format_ == Format::totalVertical || format_ == Format::seasonVertical;
    const bool isDaily = format_ == Format::dailyVertical;
    if ((isSum || isDaily) && unit == NSUnitLength::feet()) {
      // Kept: exactly a million is still 1,000.0k, and 250 feet are 0.2k. Another bound on either
      // side would change the texts next to it.
      const bool isMillions = isSum && value > 1'000'000;
      value /= isMillions ? 1'000'000 : 1'000;
      return isMillions ? millions() : isDaily ? roundedDailyThousands() : thousands();
    }
  }
  return measurements();
}

template <class Unit>
std::optional<std::string> OmbrixMeasurementFormatter::text(const Measurement<Unit>& measurement) {
  double value = measurement.value;
  NSMeasurementFormatter& formatter = formatterFor(measurement.unit, value);
  // Kept: a number alone is not put in capitals, so that its suffix reads "k" here and "K" beside
  // a unit.
  if (unitStyle_ == UnitStyle::valueOnly) return formatter.numberFormatter().string(value);
  auto text = value == measurement.value
                  ? formatter.string(value, named(measurement.unit, locale_))
                  : formatter.string(value, measurement.unit, measurement.value);
  if (text) text = platform::uppercased(*std::move(text));
  return text;
}

std::optional<std::string> OmbrixMeasurementFormatter::string(const FormatterObject& object) {
  return std::visit(
      [&]<class Unit>(const Unit& unit) -> std::optional<std::string> {
        const auto measurement = read(object, std::get<Unit>(inputUnit(format_)));
        if (!measurement) return std::nullopt;
        if constexpr (std::is_same_v<Unit, NSUnitAngle>) return text(*measurement);
        return text(measurement->converted(unit));
      },
      displayUnit());
}

std::optional<NSAttributedString> OmbrixMeasurementFormatter::attributedStringWithDefaultAttributes(
    const FormatterObject& object, const Attributes& attributes) {
  const auto text = string(object);
  if (!text) return std::nullopt;
  return OmbrixValueFormatter::shared().attributedStringWithDefaultAttributes(*text, attributes);
}

std::optional<NSAttributedString> OmbrixMeasurementFormatter::attributedStringWithValueAttributes(
    const FormatterObject& object, const Attributes& valueAttributes,
    const Attributes& unitLabelAttributes) {
  const auto text = string(object);
  if (!text) return std::nullopt;
  return OmbrixValueFormatter::shared().attributedStringWithValueAttributes(*text, valueAttributes,
                                                                            unitLabelAttributes);
}

std::expected<platform::AnyMeasurement, std::string> OmbrixMeasurementFormatter::getObjectValue(
    std::string_view text) {
  auto value = measurements().getObjectValue(text, displayUnit());
  if (value) return value;
  // Translates the platform's sentence into the reader's language.
  constexpr std::string_view kPlaceholder = "%@";
  auto sentence =
      localizedString("formatter.not_a_number", "The text “%@” is not a number.", locale_);
  const auto place = sentence.find(kPlaceholder);
  if (place != std::string::npos) sentence.replace(place, kPlaceholder.size(), text);
  return std::unexpected(std::move(sentence));
}

std::optional<std::string> OmbrixMeasurementFormatter::unitLabel() {
  const AnyUnit unit = displayUnit();
  // Kept: temperatures have no label; with one, callers that show whatever label there is would
  // begin to show degrees.
  if (std::holds_alternative<NSUnitTemperature>(unit)) return std::nullopt;
  const auto ten = std::visit(
      [this](const auto& known) { return units().string(10, named(known, locale_)); }, unit);
  if (!ten) return std::nullopt;
  std::string label = platform::trimmingCharacters(*ten, CharacterSet::decimalDigits);
  label = platform::trimmingCharacters(label, CharacterSet::whitespacesAndNewlines);
  if (label.empty()) return std::nullopt;
  // Kept: labels are not upper-cased, unlike texts; callers set them in their own case.
  return label;
}

// Kept: the argument is ignored; a label in another unit system would not match what `string`
// writes.
std::optional<std::string> OmbrixMeasurementFormatter::unitLabel(std::string_view) {
  return unitLabel();
}

}  // namespace ombrix

#include "OmbrixPlatform/Measure/NSMeasurementFormatter.hpp"

#include <cmath>
#include <utility>

#include "OmbrixPlatform/Measure/Detail/IcuNumberFormat.hpp"

namespace ombrix::platform {
namespace {

UNumberUnitWidth icuWidth(NSFormattingUnitStyle style) {
  switch (style) {
    case NSFormattingUnitStyle::shortStyle:
      return UNUM_UNIT_WIDTH_NARROW;
    case NSFormattingUnitStyle::mediumStyle:
      return UNUM_UNIT_WIDTH_SHORT;
    case NSFormattingUnitStyle::longStyle:
      return UNUM_UNIT_WIDTH_FULL_NAME;
  }
  return UNUM_UNIT_WIDTH_SHORT;
}

}  // namespace

NSMeasurementFormatter::NSMeasurementFormatter(NSFormattingUnitStyle unitStyle,
                                               NSNumberFormatter numberFormatter)
    : unitStyle_(unitStyle), numberFormatter_(std::move(numberFormatter)) {}

void NSMeasurementFormatter::setUnitStyle(NSFormattingUnitStyle style) {
  unitStyle_ = style;
  knownUnits_.clear();
}

void NSMeasurementFormatter::setNumberFormatter(NSNumberFormatter formatter) {
  numberFormatter_ = std::move(formatter);
  knownUnits_.clear();
}

const detail::IcuUnitFormat* NSMeasurementFormatter::format(std::string_view identifier) {
  for (const KnownUnit& known : knownUnits_) {
    if (known.identifier == identifier) return known.format;
  }
  const detail::IcuUnitFormat* format =
      numberFormatter_.format_->unitFormat(identifier, icuWidth(unitStyle_));
  if (format != nullptr) knownUnits_.push_back({identifier, format});
  return format;
}

std::optional<std::string> NSMeasurementFormatter::string(double value, const NSDimension& unit) {
  if (!numberFormatter_.format_) return std::nullopt;
  if (!unit.identifier().empty()) {
    const detail::IcuUnitFormat* known = format(unit.identifier());
    if (known == nullptr) return std::nullopt;
    auto text = detail::text(known->formatter, value);
    // A word alone may say one or two of a unit. In Danish it says all below two, as 1.5.
    const bool hasFraction = numberFormatter_.settings().maximumFractionDigits > 0;
    if (!text || !hasFraction || detail::holdsDigit(*text)) return text;
    auto numbered = numberedText(*known, value, value);
    return numbered ? numbered : text;
  }
  auto text = numberFormatter_.string(value);
  if (text) text->append(" ").append(unit.symbol());
  return text;
}

std::optional<std::string> NSMeasurementFormatter::string(double value, const NSDimension& unit,
                                                          double wholeValue) {
  if (!numberFormatter_.format_) return std::nullopt;
  if (unit.identifier().empty()) return string(value, unit);
  const detail::IcuUnitFormat* known = format(unit.identifier());
  if (known == nullptr) return std::nullopt;
  auto text = numberedText(*known, value, wholeValue);
  return text ? text : detail::text(known->formatter, value);
}

std::optional<std::string> NSMeasurementFormatter::numberedText(const detail::IcuUnitFormat& unit,
                                                                double value,
                                                                double wholeValue) const {
  const auto number = numberFormatter_.string(value);
  if (!number) return std::nullopt;
  const auto& suffix = numberFormatter_.settings().positiveSuffix;
  // A value that rounds to zero has no sign, so the whole value is written without one.
  const bool isSigned = value < 0 && number != numberFormatter_.string(-value);
  const double whole = std::copysign(wholeValue, isSigned ? -1.0 : 1.0);
  // No language has a single word for a thousand of a unit.
  for (const double spoken : {whole, std::copysign(1'000.0, whole)}) {
    if (auto text = detail::textAround(unit.formatter, spoken, *number, suffix)) return text;
  }
  return std::nullopt;
}

std::optional<std::string> NSMeasurementFormatter::string(const FormatterObject& object) {
  const AnyMeasurement* any = object.measurement();
  if (any == nullptr) return std::nullopt;
  return std::visit([this](const auto& measurement) { return string(measurement); }, *any);
}

std::expected<AnyMeasurement, std::string> NSMeasurementFormatter::getObjectValue(
    std::string_view text, const AnyUnit& unit) const {
  const std::optional<double> number = numberFormatter_.number(text);
  if (!number) return std::unexpected("The text “" + std::string(text) + "” is not a number.");
  return std::visit([&](const auto& known) { return AnyMeasurement(Measurement(*number, known)); },
                    unit);
}

}  // namespace ombrix::platform

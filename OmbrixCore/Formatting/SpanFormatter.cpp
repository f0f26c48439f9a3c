#include "OmbrixCore/Formatting/SpanFormatter.hpp"

#include <cstdint>
#include <cstdlib>

#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"
#include "OmbrixPlatform/Text/LetterCase.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

using platform::FormatterObject;
using platform::NSAttributedString;
using platform::NSCalendarUnit;
using platform::NSDateComponents;

namespace {

/// The number, truncated.
std::int64_t truncated(double number) {
  constexpr double kTwoTo63 = 9'223'372'036'854'775'808.0;
  const bool fits = number >= -kTwoTo63 && number < kTwoTo63;  // false for not-a-number
  if (!fits) {
    platform::fatalError("a span of " + std::to_string(number) + " seconds fits no 64-bit integer");
  }
  return static_cast<std::int64_t>(number);
}

std::optional<NSDateComponents> read(const FormatterObject& object) {
  if (const NSDateComponents* components = object.dateComponents()) return *components;
  const double* seconds = object.number();
  if (seconds == nullptr) return std::nullopt;
  const std::int64_t hours = truncated(*seconds / 3'600);
  const std::int64_t rest = truncated(*seconds) - hours * 3'600;
  // Kept: a negative number reads like its positive counterpart, while components keep their
  // signs. A sign here would put one in front of every countdown.
  return NSDateComponents{
      .hour = std::abs(hours), .minute = std::abs(rest / 60), .second = std::abs(rest % 60)};
}

NSCalendarUnit unitsFrom(NSCalendarUnit minimumComponent) noexcept {
  switch (minimumComponent) {
    case NSCalendarUnit::day:
      return NSCalendarUnit::day;
    case NSCalendarUnit::hour:
      return NSCalendarUnit::day | NSCalendarUnit::hour;
    case NSCalendarUnit::minute:
      return NSCalendarUnit::hour | NSCalendarUnit::minute;
    default:
      return NSCalendarUnit::hour | NSCalendarUnit::minute | NSCalendarUnit::second;
  }
}

}  // namespace

bool SpanFormatter::distinctMinVsMeters() const { return unitPreference() != "miles"; }

std::optional<std::string> SpanFormatter::string(const FormatterObject& object) {
  const auto components = read(object);
  if (!components) return std::nullopt;
  setAllowedUnits(unitsFrom(minimumComponent_));
  configure(*components);
  auto text = stringFrom(*components);
  if (text) text = platform::uppercased(*std::move(text));
  return text;
}

std::optional<NSAttributedString> SpanFormatter::attributedStringWithDefaultAttributes(
    const FormatterObject& object, const Attributes& attributes) {
  const auto text = string(object);
  if (!text) return std::nullopt;
  return OmbrixValueFormatter::shared().attributedStringWithDefaultAttributes(*text, attributes);
}

std::optional<NSAttributedString> SpanFormatter::attributedStringWithValueAttributes(
    const FormatterObject& object, const Attributes& valueAttributes, const Attributes&) {
  const auto text = string(object);
  if (!text) return std::nullopt;
  // Kept: unit letters look like the numbers; with the unit-label attributes every duration would
  // change its look.
  return OmbrixValueFormatter::shared().attributedStringWithValueAttributes(*text, valueAttributes,
                                                                            valueAttributes);
}

}  // namespace ombrix

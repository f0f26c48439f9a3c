#include "Examples/HostApp/Texts/FigureTexts.hpp"

#include <variant>

#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Measure/NSNumberFormatter.hpp"

namespace ombrix::hostapp {
namespace {

using platform::NSAttributedString;

const char* templateOf(FigureTexts::DateStyle style) {
  using enum FigureTexts::DateStyle;
  switch (style) {
    case day:
      return "yMMMMEEEEd";
    case dayAndTime:
      return "yMMMMEEEEdjm";
    case shortDay:
      return "MMMEd";
    case clock:
      return "jm";
    case clockToSecond:
      return "jms";
  }
  return "";
}

}  // namespace

const NSAttributedString::Attributes& valueAttributes() {
  static const NSAttributedString::Attributes attributes = {
      {NSAttributedString::Key::font, platform::UIFont({.name = "Terminal", .isBold = true}, 1)},
      {OmbrixValueFormatter::SecondaryFont, platform::UIFont("Terminal", 1)},
      {OmbrixValueFormatter::SecondaryForegroundColor, platform::UIColor{0.55, 0.55, 0.55}}};
  return attributes;
}

OmbrixMeasurementFormatter& FigureTexts::formatter(Format format) {
  return formatters_.try_emplace(format, format).first->second;
}

std::string FigureTexts::rendered(const std::optional<NSAttributedString>& text) const {
  return text ? rendering_(*text) : "?";
}

std::string FigureTexts::value(Format format, double number) {
  return rendered(
      formatter(format).attributedStringWithDefaultAttributes(number, valueAttributes()));
}

std::string FigureTexts::duration(double seconds) {
  if (!durations_) durations_.emplace(platform::NSCalendarUnit::second);
  return rendered(durations_->attributedStringWithDefaultAttributes(seconds, valueAttributes()));
}

std::string FigureTexts::count(std::size_t number) {
  return rendered(OmbrixValueFormatter::shared().attributedStringWithDefaultAttributes(
      countText(number), valueAttributes()));
}

std::string FigureTexts::plain(Format format, double number) {
  return formatter(format).string(number).value_or("");
}

std::string FigureTexts::difference(Format format, double number) {
  const std::string text = plain(format, number);
  // A number that rounds to zero has no sign.
  return number > 0 && text != plain(format, 0) ? "+" + text : text;
}

std::string FigureTexts::date(DateStyle style, platform::Date date) {
  const auto known = dates_.find(style);
  if (known != dates_.end()) return known->second.stringFrom(date);
  const auto pattern = platform::DateFormatter::dateFormatFromTemplate(templateOf(style));
  return dates_.try_emplace(style, pattern).first->second.stringFrom(date);
}

std::string countText(std::size_t number) {
  const platform::NSNumberFormatter formatter({.locale = platform::Locale::current()});
  return formatter.string(static_cast<double>(number)).value_or(std::to_string(number));
}

double unitSize(FigureTexts::Format format) {
  const auto unit =
      OmbrixMeasurementFormatter::localizedUnit(format, OmbrixSettings::shared().metricType());
  return std::visit([](const auto& each) { return each.converter().baseUnitValue(1); }, unit);
}

}  // namespace ombrix::hostapp

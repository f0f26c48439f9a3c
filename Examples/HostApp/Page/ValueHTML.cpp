#include "Examples/HostApp/Page/ValueHTML.hpp"

#include <variant>

#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"

namespace ombrix::hostapp {
namespace {

using platform::NSAttributedString;

std::string markedUp(const std::optional<NSAttributedString>& text) {
  if (!text) return {};
  std::string html;
  for (const auto& run : text->runs()) {
    const std::u16string part = text->utf16().substr(run.range.location, run.range.length);
    const auto* font = run.attributes->find<platform::UIFont>(NSAttributedString::Key::font);
    const char* tag = font != nullptr && font->fontDescriptor().isBold ? "b" : "i";
    const std::string plain = NSAttributedString(part, run.attributes).string();
    html += std::string("<") + tag + ">" + escaped(plain) + "</" + tag + ">";
  }
  return html;
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string html;
  html.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

std::string valueHTML(OmbrixMeasurementFormatter::MeasurementFormat format, double number) {
  OmbrixMeasurementFormatter formatter(format);
  return markedUp(formatter.attributedStringWithDefaultAttributes(number, valueAttributes()));
}

std::string durationHTML(double seconds) {
  OmbrixDurationFormatter formatter(platform::NSCalendarUnit::second);
  return markedUp(formatter.attributedStringWithDefaultAttributes(seconds, valueAttributes()));
}

std::string valueText(OmbrixMeasurementFormatter::MeasurementFormat format, double number) {
  return OmbrixMeasurementFormatter(format).string(number).value_or("");
}

double unitSize(OmbrixMeasurementFormatter::MeasurementFormat format) {
  const auto unit =
      OmbrixMeasurementFormatter::localizedUnit(format, OmbrixSettings::shared().metricType());
  return std::visit([](const auto& each) { return each.converter().baseUnitValue(1); }, unit);
}

}  // namespace ombrix::hostapp

#include "Examples/HostApp/Terminal/ReportLine.hpp"

#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"

namespace ombrix::hostapp {
namespace {

std::string styled(const std::optional<platform::NSAttributedString>& text) {
  return text ? forStandardOutput(*text) : "?";
}

}  // namespace

std::string styledValue(OmbrixMeasurementFormatter::MeasurementFormat format, double number) {
  OmbrixMeasurementFormatter formatter(format);
  return styled(formatter.attributedStringWithDefaultAttributes(number, valueAttributes()));
}

std::string styledDuration(double seconds) {
  OmbrixDurationFormatter formatter(platform::NSCalendarUnit::second);
  return styled(formatter.attributedStringWithDefaultAttributes(seconds, valueAttributes()));
}

}  // namespace ombrix::hostapp

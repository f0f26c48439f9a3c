#include "Examples/HostApp/DayReport.hpp"

#include <fmt/format.h>

#include "Examples/HostApp/StyledText.hpp"
#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::hostapp {
namespace {

using Format = OmbrixMeasurementFormatter::MeasurementFormat;

std::string styled(std::optional<platform::NSAttributedString> text) {
  return text ? forStandardOutput(*text) : "?";
}

/// A value in SI units in the user's units, styled.
std::string value(Format format, double number) {
  OmbrixMeasurementFormatter formatter(format);
  return styled(formatter.attributedStringWithDefaultAttributes(number, valueAttributes()));
}

std::string duration(double seconds) {
  OmbrixDurationFormatter formatter(platform::NSCalendarUnit::second);
  return styled(formatter.attributedStringWithDefaultAttributes(seconds, valueAttributes()));
}

}  // namespace

std::string dayReport(const DaySummary& day, const std::string& title) {
  std::string text = fmt::format("{}\n", title);
  const auto line = [&](const char* label, const std::string& shown) {
    text += fmt::format("  {:<15} {}\n", label, shown);
  };
  if (day.startTime) {
    line("Start", platform::DateFormatter("EEEE, d MMMM y, HH:mm").stringFrom(*day.startTime));
    line("Span", duration(day.spanSeconds()));
    line("Distance", value(Format::distance, day.distanceMeters));
    line("Vertical up", value(Format::vertical, day.ascentMeters));
    line("Vertical down", value(Format::vertical, day.descentMeters));
    line("Top speed", value(Format::speed, day.maxSpeedMetersPerSecond));
    line("Average speed", value(Format::speed, day.averageSpeedMetersPerSecond));
    line("Altitude", value(Format::altitude, *day.minAltitudeMeters) + " to " +
                         value(Format::altitude, *day.maxAltitudeMeters));
  }
  line("Fixes",
       fmt::format("{} read, {} skipped, {} used", day.rows, day.skipped, day.usedForStats));
  return text;
}

}  // namespace ombrix::hostapp

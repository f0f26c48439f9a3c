#include "Examples/HostApp/DayReport.hpp"

#include <fmt/format.h>

#include "Examples/HostApp/ReportLine.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::hostapp {

std::string dayReport(const DaySummary& day, const std::string& title) {
  using Format = OmbrixMeasurementFormatter::MeasurementFormat;
  std::string text = fmt::format("{}\n", title);
  const auto line = [&](std::string_view label, Format format, double number) {
    text += reportLine(label, styledValue(format, number));
  };
  if (day.startTime) {
    const platform::DateFormatter start("EEEE, d MMMM y, HH:mm");
    text += reportLine("Start", start.stringFrom(*day.startTime));
    text += reportLine("Span", styledDuration(day.spanSeconds()));
    line("Distance", Format::distance, day.distanceMeters);
    line("Vertical up", Format::vertical, day.ascentMeters);
    line("Vertical down", Format::vertical, day.descentMeters);
    line("Top speed", Format::speed, day.maxSpeedMetersPerSecond);
    line("Average speed", Format::speed, day.averageSpeedMetersPerSecond);
    line("Lowest point", Format::altitude, *day.minAltitudeMeters);
    line("Highest point", Format::altitude, *day.maxAltitudeMeters);
  }
  const std::string off = day.offGlobe != 0 ? fmt::format(", {} off the globe", day.offGlobe) : "";
  return text + reportLine("Fixes", fmt::format("{} read, {} skipped, {} used{}", day.rows,
                                                day.skipped, day.usedForStats, off));
}

}  // namespace ombrix::hostapp

#include "Examples/HostApp/DayReport.hpp"

#include <fmt/format.h>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::hostapp {
namespace {

constexpr double kMetersInMile = 1609.344;
constexpr double kMetersInFoot = 0.3048;

/// How plain numbers are shown in a unit system.
struct Units {
  double metersInDistance, metersInHeight;
  const char *distance, *height, *speed;
  double metersInSpeedDistance;
};

Units unitsOf(const std::string& metricType) {
  if (metricType == "miles")
    return {kMetersInMile, kMetersInFoot, "mi", "ft", "mph", kMetersInMile};
  if (metricType == "british") return {1000, 1, "km", "m", "mph", kMetersInMile};
  return {1000, 1, "km", "m", "km/h", 1000};
}

std::string duration(double seconds) {
  const auto whole = static_cast<long long>(seconds);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

}  // namespace

std::string dayReport(const DaySummary& day, const std::string& title) {
  const Units units = unitsOf(OmbrixSettings::shared().metricType());
  std::string text = fmt::format("{}\n", title);
  const auto line = [&](const char* label, const std::string& value) {
    text += fmt::format("  {:<15} {}\n", label, value);
  };
  const auto height = [&](double meters) {
    return fmt::format("{:.0f} {}", meters / units.metersInHeight, units.height);
  };
  const auto speed = [&](double metersPerSecond) {
    return fmt::format("{:.1f} {}", metersPerSecond * 3600 / units.metersInSpeedDistance,
                       units.speed);
  };
  if (day.startTime) {
    const platform::DateFormatter formatter("EEEE, d MMMM y, HH:mm");
    line("Start", formatter.stringFrom(*day.startTime));
    line("Span", duration(day.spanSeconds()));
    line("Distance",
         fmt::format("{:.1f} {}", day.distanceMeters / units.metersInDistance, units.distance));
    line("Vertical up", height(day.ascentMeters));
    line("Vertical down", height(day.descentMeters));
    line("Top speed", speed(day.maxSpeedMetersPerSecond));
    line("Average speed", speed(day.averageSpeedMetersPerSecond));
    line("Altitude", height(*day.minAltitudeMeters) + " to " + height(*day.maxAltitudeMeters));
  }
  line("Fixes",
       fmt::format("{} read, {} skipped, {} used", day.rows, day.skipped, day.usedForStats));
  return text;
}

}  // namespace ombrix::hostapp

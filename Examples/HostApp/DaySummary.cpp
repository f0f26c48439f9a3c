#include "Examples/HostApp/DaySummary.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace ombrix::hostapp {
namespace {

std::string number(std::optional<double> value) {
  return value ? fmt::format("{}", *value) : "null";
}

std::optional<double> seconds(std::optional<platform::Date> date) {
  if (!date) return std::nullopt;
  return platform::timeIntervalSince1970(*date);
}

}  // namespace

double DaySummary::spanSeconds() const {
  return startTime && endTime ? (*endTime - *startTime).count() : 0;
}

DaySummary summarize(std::span<const CLLocation> fixes, std::size_t skipped, FixFilter filter) {
  DaySummary day;
  day.rows = fixes.size();
  day.skipped = skipped;
  const CLLocation* last = nullptr;
  for (const CLLocation& fix : fixes) {
    if (filter == FixFilter::accurateForStats && !fix.isAccurateForStats()) continue;
    ++day.usedForStats;
    if (last == nullptr) {
      day.startTime = fix.timestamp;
      day.minAltitudeMeters = day.maxAltitudeMeters = fix.altitude;
    } else {
      day.distanceMeters += last->distanceFrom(fix);
      const double rise = fix.altitude - last->altitude;
      (rise > 0 ? day.ascentMeters : day.descentMeters) += std::abs(rise);
    }
    day.endTime = fix.timestamp;
    day.minAltitudeMeters = std::min(*day.minAltitudeMeters, fix.altitude);
    day.maxAltitudeMeters = std::max(*day.maxAltitudeMeters, fix.altitude);
    day.maxSpeedMetersPerSecond = std::max(day.maxSpeedMetersPerSecond, fix.speed);
    last = &fix;
  }
  if (const double span = day.spanSeconds(); span > 0) {
    day.averageSpeedMetersPerSecond = day.distanceMeters / span;
  }
  return day;
}

std::string toJSON(const DaySummary& day, const std::string& heartRate) {
  return fmt::format(
      "{{\"rows\":{},\"skipped\":{},\"usedForStats\":{},\"startTime\":{},\"endTime\":{},"
      "\"distanceMeters\":{},\"ascentMeters\":{},\"descentMeters\":{},"
      "\"maxSpeedMetersPerSecond\":{},\"averageSpeedMetersPerSecond\":{},"
      "\"minAltitudeMeters\":{},\"maxAltitudeMeters\":{}{}}}",
      day.rows, day.skipped, day.usedForStats, number(seconds(day.startTime)),
      number(seconds(day.endTime)), day.distanceMeters, day.ascentMeters, day.descentMeters,
      day.maxSpeedMetersPerSecond, day.averageSpeedMetersPerSecond, number(day.minAltitudeMeters),
      number(day.maxAltitudeMeters), heartRate.empty() ? "" : ",\"heartRate\":" + heartRate);
}

}  // namespace ombrix::hostapp

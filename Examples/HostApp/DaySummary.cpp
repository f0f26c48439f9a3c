#include "Examples/HostApp/DaySummary.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace ombrix::hostapp {
namespace {

std::string number(std::optional<double> value) {
  return value && std::isfinite(*value) ? fmt::format("{}", *value) : "null";
}

std::optional<double> seconds(std::optional<platform::Date> date) {
  if (!date) return std::nullopt;
  return platform::timeIntervalSince1970(*date);
}

}  // namespace

double DaySummary::spanSeconds() const {
  return startTime && endTime ? (*endTime - *startTime).count() : 0;
}

bool isFinite(const CLLocation& fix) {
  return std::isfinite(fix.coordinate.latitude) && std::isfinite(fix.coordinate.longitude) &&
         std::isfinite(fix.altitude) && std::isfinite(fix.course) && std::isfinite(fix.speed) &&
         std::isfinite(fix.verticalAccuracy) && std::isfinite(fix.horizontalAccuracy) &&
         std::isfinite(platform::timeIntervalSince1970(fix.timestamp));
}

bool isOnGlobe(const CLLocation& fix) {
  constexpr double kSkyMeters = 100'000;
  constexpr double kEscapeMetersPerSecond = 11'186;
  constexpr double kFirstSecond = -62'135'596'800, kLastSecond = 253'402'300'799;
  const double time = platform::timeIntervalSince1970(fix.timestamp);
  return isFinite(fix) && std::abs(fix.coordinate.latitude) <= 90 &&
         std::abs(fix.coordinate.longitude) <= 180 && std::abs(fix.altitude) <= kSkyMeters &&
         fix.speed <= kEscapeMetersPerSecond && time >= kFirstSecond && time <= kLastSecond;
}

DaySummary summarize(std::span<const CLLocation> fixes, std::size_t skipped, FixFilter filter) {
  DaySummary day;
  day.rows = fixes.size();
  day.skipped = skipped;
  const CLLocation* last = nullptr;
  for (const CLLocation& fix : fixes) {
    if (!isOnGlobe(fix)) {
      ++day.offGlobe;
      continue;
    }
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
      "{{\"rows\":{},\"skipped\":{},\"usedForStats\":{},\"offGlobe\":{},"
      "\"startTime\":{},\"endTime\":{},"
      "\"distanceMeters\":{},\"ascentMeters\":{},\"descentMeters\":{},"
      "\"maxSpeedMetersPerSecond\":{},\"averageSpeedMetersPerSecond\":{},"
      "\"minAltitudeMeters\":{},\"maxAltitudeMeters\":{}{}}}",
      day.rows, day.skipped, day.usedForStats, day.offGlobe, number(seconds(day.startTime)),
      number(seconds(day.endTime)), number(day.distanceMeters), number(day.ascentMeters),
      number(day.descentMeters), number(day.maxSpeedMetersPerSecond),
      number(day.averageSpeedMetersPerSecond), number(day.minAltitudeMeters),
      number(day.maxAltitudeMeters), heartRate.empty() ? "" : ",\"heartRate\":" + heartRate);
}

}  // namespace ombrix::hostapp

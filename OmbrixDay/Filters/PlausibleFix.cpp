#include "OmbrixDay/Filters/PlausibleFix.hpp"

#include <cmath>

namespace ombrix {

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

}  // namespace ombrix

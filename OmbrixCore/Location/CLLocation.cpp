#include "OmbrixCore/Location/CLLocation.hpp"

#include <atomic>
#include <cmath>
#include <numbers>

#include "OmbrixCore/Location/Detail/GridCell.hpp"
#include "OmbrixPlatform/Location/Geodesic.hpp"

namespace ombrix {
namespace {

constexpr double kInitialAccuracyLimitMetres = 60.0;
constinit std::atomic<double> horizontalAccuracyLimit{kInitialAccuracyLimitMetres};
constinit std::atomic<double> verticalAccuracyLimit{kInitialAccuracyLimitMetres};

std::int64_t speedCell(const CLLocation& fix) { return detail::gridCell(fix.speed, 100); }
std::int64_t courseCell(const CLLocation& fix) { return detail::gridCell(fix.course, 10); }
std::int64_t horizontalAccuracyCell(const CLLocation& fix) {
  return detail::gridCell(fix.horizontalAccuracy, 10);
}
std::int64_t verticalAccuracyCell(const CLLocation& fix) {
  return detail::gridCell(fix.verticalAccuracy, 10);
}

double radians(double degrees) { return degrees * std::numbers::pi / 180; }

platform::GeodesicPoint pointOf(const CLLocation& fix) {
  return {fix.coordinate.latitude, fix.coordinate.longitude};
}

/// Absolute `change` per second between two fixes; 0 when the time between them is 0 or unknown.
double rate(double change, const CLLocation& to, const CLLocation& from) {
  const double seconds = (to.timestamp - from.timestamp).count();
  const bool timePassed = seconds < 0 || seconds > 0;
  return timePassed ? std::fabs(change / seconds) : 0.0;
}

}  // namespace

bool CLLocation::isEqualToLocation(const CLLocation& other) const {
  return timestamp == other.timestamp && coordinate == other.coordinate &&
         speedCell(*this) == speedCell(other) && courseCell(*this) == courseCell(other) &&
         horizontalAccuracyCell(*this) == horizontalAccuracyCell(other) &&
         verticalAccuracyCell(*this) == verticalAccuracyCell(other);
}

std::size_t CLLocation::hash() const {
  platform::Hasher hasher;
  hasher.combine(platform::timeIntervalSince1970(timestamp));
  coordinate.hashInto(hasher);
  hasher.combine(speedCell(*this));
  hasher.combine(courseCell(*this));
  hasher.combine(horizontalAccuracyCell(*this));
  hasher.combine(verticalAccuracyCell(*this));
  return hasher.finalize();
}

double CLLocation::MinHorizontalAccuracyForStats() {
  return horizontalAccuracyLimit.load(std::memory_order_relaxed);
}

void CLLocation::setMinHorizontalAccuracyForStats(double metres) {
  horizontalAccuracyLimit.store(metres, std::memory_order_relaxed);
}

double CLLocation::MinVerticalAccuracyForStats() {
  return verticalAccuracyLimit.load(std::memory_order_relaxed);
}

void CLLocation::setMinVerticalAccuracyForStats(double metres) {
  verticalAccuracyLimit.store(metres, std::memory_order_relaxed);
}

bool CLLocation::isAccurateForStats() const {
  // Kept: only the upper bound is asked, so a negative (invalid) accuracy passes. Imported tracks
  // without accuracies would vanish from every statistic otherwise.
  return horizontalAccuracy <= MinHorizontalAccuracyForStats() &&
         verticalAccuracy <= MinVerticalAccuracyForStats() && speed >= 0;
}

double CLLocation::metersToDegreesForLatAtLon(double lon) {
  // Kept: the argument is named after a longitude and used as a latitude, on which alone the length
  // of a degree depends.
  const double latitude = radians(lon);
  return 1 / std::fabs(111132.95255 - 559.84957 * std::cos(2 * latitude) +
                       1.17514 * std::cos(4 * latitude) - 0.0023 * std::cos(6 * latitude));
}

double CLLocation::metersToDegreesForLonAtLat(double lat) {
  const double latitude = radians(lat);
  return 1 / std::fabs(111412.87733 * std::cos(latitude) - 93.50412 * std::cos(3 * latitude) +
                       0.11774 * std::cos(5 * latitude));
}

double CLLocation::distanceFrom(const CLLocation& other) const {
  return coordinate.distanceTo(other.coordinate);
}

double CLLocation::courseTo(const CLLocation& other) const {
  return coordinate.courseTo(other.coordinate);
}

double CLLocation::courseFrom(const CLLocation& other) const { return other.courseTo(*this); }

CLLocation CLLocation::move(double onCourse, double distance) const {
  CLLocation moved = *this;
  moved.coordinate = coordinate.move(onCourse, distance);
  return moved;
}

CLLocation CLLocation::move(double onCourse, double atSpeed, double duration) const {
  return move(onCourse, atSpeed * duration);
}

CLLocation CLLocation::replacingSpeed(double newSpeed) const {
  CLLocation replaced = *this;
  replaced.speed = newSpeed;
  return replaced;
}

double CLLocation::speedOfComponents(double horizontal, double vertical) {
  return std::sqrt(horizontal * horizontal + vertical * vertical);
}

double CLLocation::speedByAddingVertical(double vertical) const {
  return speedOfComponents(speed, vertical);
}

double CLLocation::speedByAddingHorizontal(double horizontal) const {
  return speedOfComponents(horizontal, speed);
}

double CLLocation::horizontalSpeedFrom(const CLLocation& other) const {
  return rate(distanceFrom(other), *this, other);
}

double CLLocation::verticalSpeedFrom(const CLLocation& other) const {
  // Kept: climbing and descending give the same value; the sign is in the altitudes.
  return rate(altitude - other.altitude, *this, other);
}

double CLLocation::speedFrom(const CLLocation& other) const {
  return speedOfComponents(horizontalSpeedFrom(other), verticalSpeedFrom(other));
}

double distanceAlong(std::span<const CLLocation> track) {
  if (track.empty()) return 0.0;
  platform::GeodesicWalk walk(pointOf(track.front()));
  double metres = 0.0;
  for (const CLLocation& fix : track.subspan(1)) metres += walk.to(pointOf(fix));
  return metres;
}

}  // namespace ombrix

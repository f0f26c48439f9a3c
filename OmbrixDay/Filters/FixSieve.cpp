#include <algorithm>
#include <cmath>

#include "OmbrixDay/Filters/FixSieve.hpp"
#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Filters/SmallMedian.hpp"

namespace ombrix::detail {
namespace {

constexpr double kWindowGapSeconds = 30;  // Neighbours further away say nothing about a fix.
constexpr std::size_t kLeastWindow = 4;   // Fixes for estimating the usual deviation.
constexpr double kDeviations = 6;         // Median absolute deviations that are still noise.
constexpr double kPositionSlackMeters = 30;
constexpr double kTurnMetersPerSecond2 = 3;  // Slack for turning, times dt squared.
constexpr double kAltitudeSlackMeters = 15;
constexpr double kSpeedSlackMetersPerSecond = 5;
constexpr double kStepMeters = 8;
constexpr double kStepMetersPerSecond = 6;
constexpr double kStepSeconds = 5;  // A jump over a longer time may be a true change.

double wrappedDegrees(double degrees) {
  if (degrees > 180) return degrees - 360;
  return degrees < -180 ? degrees + 360 : degrees;
}

double length(double east, double north) { return std::sqrt(east * east + north * north); }

}  // namespace

std::optional<CleanFix> FixSieve::push(const FedFix& fed) {
  const CLLocation& fix = fed.fix;
  if (!hasOrigin_) {
    hasOrigin_ = true;
    originLatitude_ = fix.coordinate.latitude;
    originLongitude_ = fix.coordinate.longitude;
    metersPerDegreeNorth_ = 1 / CLLocation::metersToDegreesForLatAtLon(originLatitude_);
    metersPerDegreeEast_ = 1 / CLLocation::metersToDegreesForLonAtLat(originLatitude_);
  }
  CleanFix& taken = at(end_);
  taken.time = platform::timeIntervalSince1970(fix.timestamp);
  taken.latitude = fix.coordinate.latitude;
  taken.longitude = fix.coordinate.longitude;
  taken.east = wrappedDegrees(taken.longitude - originLongitude_) * metersPerDegreeEast_;
  taken.north = (taken.latitude - originLatitude_) * metersPerDegreeNorth_;
  taken.knowsAltitude = hasAltitude(fix);
  if (taken.knowsAltitude) {
    // All fixes before were at 0: the following ones continue from there.
    if (!lastAltitude_ && end_ > 0) stepOffset_ = fix.altitude;
    lastAltitude_ = fix.altitude;
  }
  taken.recordedAltitude = lastAltitude_.value_or(0);
  taken.altitude = taken.recordedAltitude - stepOffset_;
  taken.speed = fix.speed;
  taken.heartRate = fed.heartRate;
  ++end_;
  if (end_ - next_ <= kReach) return std::nullopt;
  return judge(next_++);
}

std::optional<CleanFix> FixSieve::drain() {
  while (next_ < end_) {
    if (auto passed = judge(next_++)) return passed;
  }
  return std::nullopt;
}

void FixSieve::findWindow(std::size_t index) {
  from_ = to_ = index;
  while (from_ > oldest_ && index - from_ < kReach &&
         at(from_).time - at(from_ - 1).time < kWindowGapSeconds) {
    --from_;
  }
  while (to_ + 1 < end_ && to_ - index < kReach &&
         at(to_ + 1).time - at(to_).time < kWindowGapSeconds) {
    ++to_;
  }
}

std::optional<CleanFix> FixSieve::judge(std::size_t index) {
  findWindow(index);
  if (to_ - from_ + 1 >= kLeastWindow && isOffTheLine(index)) {
    ++counts_.outliers;
    // It gets the place of the fix before it, so that it does not count as a neighbour.
    for (std::size_t i = index; i > oldest_; --i) at(i) = at(i - 1);
    ++oldest_;
    return std::nullopt;
  }
  if (to_ - from_ + 1 >= kLeastWindow) {
    takeOutStep(index);
    mendAltitude(index);
    mendSpeed(index);
  }
  if (index - oldest_ >= kReach) oldest_ = index - kReach + 1;
  ++counts_.used;
  return at(index);
}

bool FixSieve::isOffTheLine(std::size_t index) const {
  const CleanFix& fix = at(index);
  const double spacing = (at(to_).time - at(from_).time) / static_cast<double>(to_ - from_);
  const double slack = kPositionSlackMeters + kTurnMetersPerSecond2 * spacing * spacing;
  if (index > from_ && index < to_) {
    // Nearly all fixes lie close to the line between their two neighbours; that is quickly seen.
    const CleanFix& before = at(index - 1);
    const CleanFix& after = at(index + 1);
    const double part = (fix.time - before.time) / (after.time - before.time);
    const double east = before.east + part * (after.east - before.east) - fix.east;
    const double north = before.north + part * (after.north - before.north) - fix.north;
    if (east * east + north * north < slack * slack / 4) return false;
  }
  SmallMedian<kRing> eastSlopes, northSlopes;
  for (std::size_t i = from_; i < to_; ++i) {
    const double dt = at(i + 1).time - at(i).time;
    eastSlopes.add((at(i + 1).east - at(i).east) / dt);
    northSlopes.add((at(i + 1).north - at(i).north) / dt);
  }
  const double eastSlope = eastSlopes.median(), northSlope = northSlopes.median();
  SmallMedian<kRing> easts, norths;
  for (std::size_t i = from_; i <= to_; ++i) {
    const double dt = at(i).time - fix.time;
    easts.add(at(i).east - eastSlope * dt);
    norths.add(at(i).north - northSlope * dt);
  }
  const double east = easts.median(), north = norths.median();
  SmallMedian<kRing> residuals;
  for (std::size_t i = from_; i <= to_; ++i) {
    const double dt = at(i).time - fix.time;
    residuals.add(
        length(at(i).east - eastSlope * dt - east, at(i).north - northSlope * dt - north));
  }
  const double own = length(fix.east - east, fix.north - north);
  return own > std::max(slack, kDeviations * residuals.median());
}

void FixSieve::takeOutStep(std::size_t index) {
  // A single fix beside a gap does not tell a step from a spike: that is mended as one.
  if (index == from_ || index + 1 >= to_) return;
  if (!at(index).knowsAltitude || !at(index + 1).knowsAltitude) return;
  const double dt = at(index + 1).time - at(index).time;
  const double rise = at(index + 1).altitude - at(index).altitude;
  if (dt > kStepSeconds || std::abs(rise) < kStepMeters + kStepMetersPerSecond * dt) return;
  SmallMedian<kRing> slopes;
  for (std::size_t i = from_; i < to_; ++i) {
    slopes.add((at(i + 1).altitude - at(i).altitude) / (at(i + 1).time - at(i).time));
  }
  const double usual = slopes.median();
  SmallMedian<kRing> deviations;
  double back = 0;
  for (std::size_t i = from_; i < to_; ++i) {
    const double step = at(i + 1).altitude - at(i).altitude;
    const double span = at(i + 1).time - at(i).time;
    deviations.add(std::abs(step / span - usual));
    if (i != index) back += step - usual * span;
  }
  const double step = rise - usual * dt;
  // A spike goes back; a step stays.
  const bool stays = std::abs(back) < std::abs(step) / 2;
  if (!stays || std::abs(step) < std::max(kStepMeters, kDeviations * deviations.median() * dt)) {
    return;
  }
  stepOffset_ += step;
  for (std::size_t i = index + 1; i < end_; ++i) at(i).altitude -= step;
  ++counts_.altitudeSteps;
}

void FixSieve::mendAltitude(std::size_t index) {
  CleanFix& fix = at(index);
  if (index > from_ && index < to_) {
    const CleanFix& before = at(index - 1);
    const CleanFix& after = at(index + 1);
    const double part = (fix.time - before.time) / (after.time - before.time);
    const double between = before.altitude + part * (after.altitude - before.altitude);
    if (std::abs(fix.altitude - between) < kAltitudeSlackMeters / 2) return;
  }
  SmallMedian<kRing> slopes, altitudes, deviations;
  for (std::size_t i = from_; i < to_; ++i) {
    slopes.add((at(i + 1).altitude - at(i).altitude) / (at(i + 1).time - at(i).time));
  }
  const double slope = slopes.median();
  for (std::size_t i = from_; i <= to_; ++i) {
    altitudes.add(at(i).altitude - slope * (at(i).time - fix.time));
  }
  const double likely = altitudes.median();
  for (std::size_t i = from_; i <= to_; ++i) {
    deviations.add(std::abs(at(i).altitude - slope * (at(i).time - fix.time) - likely));
  }
  if (std::abs(fix.altitude - likely) <=
      std::max(kAltitudeSlackMeters, kDeviations * deviations.median())) {
    return;
  }
  fix.recordedAltitude += likely - fix.altitude;
  fix.altitude = likely;
  ++counts_.mendedAltitudes;
}

void FixSieve::mendSpeed(std::size_t index) {
  CleanFix& fix = at(index);
  if (index > from_ && std::abs(fix.speed - at(index - 1).speed) < kSpeedSlackMetersPerSecond / 2) {
    return;
  }
  SmallMedian<kRing> speeds, deviations;
  for (std::size_t i = from_; i <= to_; ++i) speeds.add(at(i).speed);
  const double likely = speeds.median();
  for (std::size_t i = from_; i <= to_; ++i) deviations.add(std::abs(at(i).speed - likely));
  if (std::abs(fix.speed - likely) <=
      std::max(kSpeedSlackMetersPerSecond, kDeviations * deviations.median())) {
    return;
  }
  fix.speed = likely;
  ++counts_.mendedSpeeds;
}

}  // namespace ombrix::detail

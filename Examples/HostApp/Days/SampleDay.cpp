#include "Examples/HostApp/Days/SampleDay.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <random>

namespace ombrix::hostapp {
namespace {

constexpr double kStartSeconds = 1'707'639'300;
constexpr CLLocationCoordinate2D kBase{47.0125, 11.2040};
constexpr double kBaseAltitudeMeters = 1'620;
constexpr double kLiftMetersPerSecond = 5;
constexpr int kLunchSeconds = 35 * 60;

/// Normally distributed numbers that are the same on every machine: the standard specifies its
/// engine exactly but not its distributions, hence the Box-Muller transform.
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : engine_(seed) {}

  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }
  double between(double low, double high) { return low + (high - low) * uniform(); }
  double normal() {
    const double radius = std::sqrt(-2 * std::log(1 - uniform()));
    return radius * std::cos(2 * std::numbers::pi * uniform());
  }

 private:
  std::mt19937_64 engine_;
};

/// An error that drifts slowly around zero, like a receiver's.
class WanderingError {
 public:
  explicit WanderingError(double meters) : meters_(meters) {}

  double next(Noise& noise) {
    constexpr double kMemory = 0.97;
    value_ = kMemory * value_ + std::sqrt(1 - kMemory * kMemory) * meters_ * noise.normal();
    return value_;
  }

 private:
  double meters_;
  double value_ = 0;
};

/// Metres from the village.
struct Position {
  double east = 0, north = 0, up = 0;
};

constexpr Position kVillage{0, 0, 0};
constexpr Position kRidge{1'900, 1'300, 760};
constexpr Position kPeak{2'500, 2'900, 1'240};
constexpr Position kBowl{3'700, 1'700, 430};

/// A lift, and the run that follows it; `bend` is how far the run swings out to its left (metres).
struct Ride {
  Position bottom, top, end;
  double bend;
};

/// The rides lead into each other, and at their end to the first one's beginning.
constexpr Ride kRides[] = {
    {kVillage, kRidge, kVillage, 260}, {kVillage, kRidge, kBowl, -180}, {kBowl, kPeak, kRidge, 340},
    {kRidge, kPeak, kBowl, 220},       {kBowl, kPeak, kVillage, -420},
};

Position between(const Position& from, const Position& to, double s) {
  return {std::lerp(from.east, to.east, s), std::lerp(from.north, to.north, s),
          std::lerp(from.up, to.up, s)};
}

class Day {
 public:
  explicit Day(std::uint64_t seed) : noise_(seed) {}

  void pause(Position at, int seconds) {
    for (int i = 0; i < seconds; ++i) record(at, 0, -1, false);
  }

  void rideLift(const Ride& ride) {
    const double east = ride.top.east - ride.bottom.east;
    const double north = ride.top.north - ride.bottom.north;
    const double roofFrom = noise_.between(0.1, 0.8);
    const double step = kLiftMetersPerSecond / std::hypot(east, north);
    for (double s = 0; s < 1; s += step) {
      const bool underRoof = s > roofFrom && s < roofFrom + 0.06;
      record(between(ride.bottom, ride.top, s), kLiftMetersPerSecond, bearing(east, north),
             underRoof);
    }
  }

  void ski(const Ride& ride) {
    const double east = ride.end.east - ride.top.east, north = ride.end.north - ride.top.north;
    const double fallLine = std::hypot(east, north);
    const double swing = noise_.between(8, 22);
    const double wave = noise_.between(70, 130);
    const double pace = noise_.between(8, 15);
    double speed = 2;
    Position last = ride.top;
    for (double down = 0; down < fallLine;) {
      speed = std::clamp(speed + 0.08 * (pace - speed) + 0.7 * noise_.normal(), 1.5, 27.0);
      const double s = down / fallLine;
      const double turn = 2 * std::numbers::pi * down / wave;
      const double turnSlope = 2 * std::numbers::pi * swing / wave * std::cos(turn);
      const double bendSlope =
          std::numbers::pi * ride.bend / fallLine * std::cos(std::numbers::pi * s);
      down += speed / std::hypot(1.0, turnSlope + bendSlope);
      const double next = std::min(1.0, down / fallLine);
      // Steeper in the middle, as slopes are.
      const double fallen = next - 0.06 * std::sin(2 * std::numbers::pi * next);
      Position here = between(ride.top, ride.end, next);
      here.up = std::lerp(ride.top.up, ride.end.up, fallen);
      const double aside = ride.bend * std::sin(std::numbers::pi * next) + swing * std::sin(turn);
      here.east -= aside * north / fallLine;
      here.north += aside * east / fallLine;
      record(here, speed, bearing(here.east - last.east, here.north - last.north), false);
      last = here;
    }
  }

  Noise& noise() { return noise_; }
  std::vector<CLLocation> take() { return std::move(fixes_); }

 private:
  static double bearing(double east, double north) {
    const double degrees = std::atan2(east, north) * 180 / std::numbers::pi;
    return degrees < 0 ? degrees + 360 : degrees;
  }

  void record(Position at, double speed, double course, bool poor) {
    const double spread = poor ? 12 : 1;
    const double north = at.north + spread * northError_.next(noise_);
    const double east = at.east + spread * eastError_.next(noise_);
    const double accuracy = 4 + 2 * std::abs(noise_.normal());
    CLLocation fix;
    fix.coordinate = {
        kBase.latitude + north * CLLocation::metersToDegreesForLatAtLon(kBase.latitude),
        kBase.longitude + east * CLLocation::metersToDegreesForLonAtLat(kBase.latitude)};
    fix.altitude = kBaseAltitudeMeters + at.up + upError_.next(noise_);
    fix.horizontalAccuracy = poor ? 65 + 10 * accuracy : accuracy;
    fix.verticalAccuracy = poor ? 80 : accuracy * 1.5;
    fix.speed = poor ? -1 : std::max(0.0, speed + 0.15 * noise_.normal());
    fix.course = poor ? -1 : course;
    fix.timestamp = platform::dateSince1970(kStartSeconds + static_cast<double>(fixes_.size()));
    fixes_.push_back(fix);
  }

  Noise noise_;
  WanderingError northError_{2.0}, eastError_{2.0}, upError_{1.5};
  std::vector<CLLocation> fixes_;
};

}  // namespace

std::vector<CLLocation> makeSampleDay(const SampleDayOptions& options) {
  Day day(options.seed);
  const auto seconds = [&](double low, double high) {
    return static_cast<int>(day.noise().between(low, high));
  };
  for (int run = 0; run < options.runs; ++run) {
    const Ride& ride = kRides[static_cast<std::size_t>(run) % std::size(kRides)];
    day.pause(ride.bottom, seconds(60, 300));
    day.rideLift(ride);
    day.pause(ride.top, seconds(30, 240));
    day.ski(ride);
    if (run == options.runs / 2) day.pause(ride.end, kLunchSeconds);
  }
  return day.take();
}

std::vector<HeartRate> makeSampleHeartRates(std::span<const CLLocation> fixes, std::uint64_t seed) {
  constexpr std::size_t kEvery = 5;
  constexpr double kResting = 84, kPerMeterPerSecond = 5.2, kHighest = 176;
  constexpr double kFollowing = 0.07;  // share of the way to the effort's rate in five seconds
  Noise noise(seed);
  WanderingError wandering(3);
  std::vector<HeartRate> rates;
  double rate = kResting;
  for (std::size_t i = kEvery; i < fixes.size(); i += kEvery) {
    const double fall = fixes[i - kEvery].altitude - fixes[i].altitude;
    const bool skis = fall > 1 && fixes[i].speed > 2;
    const double effort =
        std::min(kHighest, kResting + (skis ? 14 + kPerMeterPerSecond * fixes[i].speed : 0));
    rate += kFollowing * (effort - rate);
    rates.push_back({fixes[i].timestamp, std::round(rate + wandering.next(noise))});
  }
  return rates;
}

}  // namespace ombrix::hostapp

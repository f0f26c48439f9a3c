#include "Tests/OmbrixDay/MadeUpDay.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace ombrix::testing {
namespace {

constexpr double kBegin = 1'707'639'300;
constexpr CLLocationCoordinate2D kBase{47.0125, 11.2040};
constexpr double kBaseAltitude = 1'620;

struct Place {
  double east = 0, north = 0, up = 0, speed = 0;
};

class Maker {
 public:
  explicit Maker(const MadeUpDayOptions& options) : options_(options), engine_(options.seed) {}

  MadeUpDay make() {
    length_ = options_.riseMeters / options_.slope;
    rest({}, 90);
    for (int ride = 0; ride < options_.rides; ++ride) {
      rest(along(0), between(30, 180));
      lift();
      rest(along(1), between(20, 150));
      run();
      if (ride == options_.rides / 2) rest(along(0), 2000);
    }
    rest(along(0), 60);
    receive();
    return std::move(day_);
  }

 private:
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }
  double between(double low, double high) { return low + (high - low) * uniform(); }
  double normal() {
    const double radius = std::sqrt(-2 * std::log(1 - uniform()));
    return radius * std::cos(2 * std::numbers::pi * uniform());
  }
  [[nodiscard]] double now() const { return kBegin + static_cast<double>(places_.size()); }

  [[nodiscard]] Place along(double s) const {
    const double rise = s - 0.06 * std::sin(2 * std::numbers::pi * s);
    return {0.8 * length_ * s, 0.6 * length_ * s, options_.riseMeters * rise};
  }

  void rest(Place at, double seconds) {
    at.speed = 0;
    if (options_.hasGaps && seconds > 120) gap(seconds / 3, 40);
    for (int i = 0; i < seconds; ++i) places_.push_back(at);
  }

  /// Nothing is received for a while, from some seconds ahead.
  void gap(double ahead, double seconds) {
    gaps_.push_back({places_.size() + static_cast<std::size_t>(ahead),
                     places_.size() + static_cast<std::size_t>(ahead + seconds)});
  }

  void lift() {
    const double begin = now();
    const double speed = between(options_.slowestLift, options_.fastestLift);
    const double haltAt = options_.hasHalts && uniform() < 0.5 ? between(0.3, 0.7) : 2;
    if (options_.hasGaps) gap(0.3 * length_ / speed, std::min(120.0, 0.4 * length_ / speed));
    bool halted = false;
    for (double s = 0; s < 1; s += speed / length_) {
      Place place = along(s);
      place.speed = speed;
      places_.push_back(place);
      if (s > haltAt && !halted) {
        halted = true;
        place.speed = 0;
        for (double i = between(20, 100); i > 0; --i) places_.push_back(place);
      }
    }
    day_.rides.push_back({SegmentKind::lift, begin, now()});
    day_.ascent += options_.riseMeters;
  }

  void run() {
    const double begin = now();
    const double swing = between(6, 18), wave = between(70, 130);
    double speed = 1.5, target = between(7, 16);
    const double stopAt = options_.hasHalts && uniform() < 0.6 ? between(0.3, 0.7) : 2;
    if (options_.hasGaps && length_ > 1000) gap(0.4 * length_ / 12, 15);
    bool stopped = false;
    for (double down = 0; down < length_;) {
      if (uniform() < 0.05) target = between(6, 18);
      // To stop at the end, and at the stop.
      const double ahead = (stopped || stopAt > 1 ? length_ : stopAt * length_) - down;
      const double brake = std::sqrt(2 * 1.2 * std::max(0.0, ahead)) + 0.8;
      speed = std::min(speed + std::clamp((target - speed) / 5, -1.5, 1.5), brake);
      const double turn = 2 * std::numbers::pi * down / wave;
      const double slope = 2 * std::numbers::pi * swing / wave * std::cos(turn);
      down += speed / std::hypot(1.0, slope);
      Place place = along(std::max(0.0, 1 - down / length_));
      place.east += swing * std::sin(turn) * 0.6;
      place.north -= swing * std::sin(turn) * 0.8;
      place.speed = speed;
      places_.push_back(place);
      if (down / length_ > stopAt && !stopped) {
        stopped = true;
        speed = 0;
        place.speed = 0;
        for (double i = between(15, 120); i > 0; --i) places_.push_back(place);
      }
    }
    day_.rides.push_back({SegmentKind::run, begin, now()});
    day_.descent += options_.riseMeters;
  }

  void receive() {
    double wander = options_.altitudeNoise * normal();
    std::vector<double> wanders;
    double step = 0;
    for (std::size_t i = 0; i < places_.size(); ++i) {
      constexpr double kMemory = 0.97;
      wander =
          kMemory * wander + std::sqrt(1 - kMemory * kMemory) * options_.altitudeNoise * normal();
      wanders.push_back(wander);
      if (options_.hasSteps && i % 1900 == 1000) step += uniform() < 0.5 ? -25 : 25;
      if (i % static_cast<std::size_t>(options_.everySeconds) != 0) continue;
      if (std::ranges::any_of(gaps_, [i](const auto& g) { return i >= g.first && i < g.second; })) {
        continue;
      }
      Place place = places_[i];
      day_.topSpeed = std::max(day_.topSpeed, place.speed);  // The greatest that is received.
      place.east += options_.positionNoise * normal();
      place.north += options_.positionNoise * normal();
      place.up += wander + step;
      place.speed = std::max(0.0, place.speed + 0.15 * normal());
      const bool isWrong = options_.hasOutliers && uniform() < 0.005;
      if (isWrong) {
        const double which = uniform();
        if (which < 0.4) place.east += between(150, 900);
        if (which > 0.3 && which < 0.7) place.up += uniform() < 0.5 ? -90 : 120;
        if (which > 0.6) place.speed += between(15, 40);
      }
      if (options_.hasOutliers && i % 400 < 3) place.speed += 14;
      add(place, kBegin + static_cast<double>(i));
      if (isWrong) day_.fixes.push_back(day_.fixes.back());
    }
    addUpNoise(wanders);
  }

  void addUpNoise(const std::vector<double>& wanders) {
    constexpr double kRest = 300;
    const auto& rides = day_.rides;
    const double end = now();
    const auto mean = [&](double from, double to) {
      double sum = 0;
      for (double time = from; time < to; ++time) {
        sum += wanders[static_cast<std::size_t>(time - kBegin)];
      }
      return sum / std::max(1.0, to - from);
    };
    for (std::size_t i = 0; i < rides.size(); ++i) {
      const double last = i > 0 ? rides[i - 1].end : kBegin;
      const double next = i + 1 < rides.size() ? rides[i + 1].begin : end;
      const double climb = mean(rides[i].end, std::min(next, rides[i].end + kRest)) -
                           mean(std::max(last, rides[i].begin - kRest), rides[i].begin);
      (rides[i].kind == SegmentKind::lift ? day_.ascentNoise : day_.descentNoise) +=
          rides[i].kind == SegmentKind::lift ? climb : -climb;
    }
  }

  void add(const Place& place, double time) {
    CLLocation fix;
    fix.coordinate = {
        kBase.latitude + place.north * CLLocation::metersToDegreesForLatAtLon(kBase.latitude),
        kBase.longitude + place.east * CLLocation::metersToDegreesForLonAtLat(kBase.latitude)};
    fix.altitude = kBaseAltitude + place.up;
    fix.horizontalAccuracy = options_.positionNoise;
    fix.verticalAccuracy = options_.altitudeNoise;
    fix.speed = place.speed;
    fix.course = 0;
    fix.timestamp = platform::dateSince1970(time);
    day_.fixes.push_back(fix);
  }

  MadeUpDayOptions options_;
  std::mt19937_64 engine_;
  double length_ = 0;
  std::vector<Place> places_;  ///< One a second.
  std::vector<std::pair<std::size_t, std::size_t>> gaps_;
  MadeUpDay day_;
};

}  // namespace

MadeUpDay makeUpDay(const MadeUpDayOptions& options) { return Maker(options).make(); }

}  // namespace ombrix::testing

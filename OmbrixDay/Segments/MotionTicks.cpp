#include "OmbrixDay/Segments/MotionTicks.hpp"

#include <algorithm>
#include <cmath>

namespace ombrix::detail {
namespace {

// A receiver's speed is ignored if it reports no motion at all although the positions move.
constexpr double kSurelyMovingMetersPerSecond = 3;
constexpr double kLeastShare = 0.3;
constexpr double kForgetting = 1.0 / 128;  // Share of the newest deviation in their mean.
// The mean distance of a fix from the middle of its neighbours over the deviation of one
// coordinate: the mean of a Rayleigh distribution, times the root of 1 + 1/2.
constexpr double kDistancePerDeviation = 1.2533 * 1.2247;

double length(double east, double north) { return std::sqrt(east * east + north * north); }

}  // namespace

void MotionTicks::restart(double time) {
  *this = MotionTicks();
  start_ = time;
}

void MotionTicks::push(const CleanFix& fix, std::vector<Motion>& motions) {
  const auto index = static_cast<std::size_t>(std::max(0.0, (fix.time - start_) / kTickSeconds));
  if (index > open_ && count_ > 0) closeTick(motions);
  open_ = index;
  learnNoise(fix);
  sum_.time += fix.time;
  sum_.east += fix.east;
  sum_.north += fix.north;
  sum_.altitude += fix.altitude;
  sum_.speed += fix.speed;
  ++count_;
}

void MotionTicks::learnNoise(const CleanFix& fix) {
  if (++taken_ >= 3 && fix.time - lastButOne_.time < kTickSeconds) {
    const double part = (last_.time - lastButOne_.time) / (fix.time - lastButOne_.time);
    const double off =
        length(lastButOne_.east + part * (fix.east - lastButOne_.east) - last_.east,
               lastButOne_.north + part * (fix.north - lastButOne_.north) - last_.north);
    deviation_ += kForgetting * (std::min(off, 4 * deviation_ + 1) - deviation_);
  }
  lastButOne_ = last_;
  last_ = fix;
}

void MotionTicks::finish(std::vector<Motion>& motions) {
  if (count_ > 0) closeTick(motions);
  while (told_ < closed_) motions.push_back(motionAround(told_++));
}

void MotionTicks::closeTick(std::vector<Motion>& motions) {
  const double part = 1.0 / static_cast<double>(count_);
  const double noise = deviation_ / kDistancePerDeviation;
  const Tick tick{sum_.time * part,     sum_.east * part,  sum_.north * part,
                  sum_.altitude * part, sum_.speed * part, noise * noise * part};
  if (closed_ > 0 && open_ > closed_) {
    const Tick before = at(closed_ - 1);
    const std::size_t empty = open_ - closed_;
    for (std::size_t i = 1; i <= empty; ++i) {
      const double share = static_cast<double>(i) / static_cast<double>(empty + 1);
      const auto between = [share](double a, double b) { return a + share * (b - a); };
      Tick filled{between(before.time, tick.time),
                  between(before.east, tick.east),
                  between(before.north, tick.north),
                  between(before.altitude, tick.altitude),
                  0,
                  tick.variance};
      filled.speed =
          length(tick.east - before.east, tick.north - before.north) / (tick.time - before.time);
      append(filled, motions);
    }
  }
  append(tick, motions);
  sum_ = {};
  count_ = 0;
}

void MotionTicks::append(const Tick& tick, std::vector<Motion>& motions) {
  ring_[closed_ % kRing] = tick;
  ++closed_;
  if (closed_ - told_ > kReach) motions.push_back(motionAround(told_++));
}

Motion MotionTicks::motionAround(std::size_t index) const {
  const auto displacement = [this](std::size_t a, std::size_t b) {
    return length(at(b).east - at(a).east, at(b).north - at(a).north);
  };
  // The distance without the average amount that noise at both ends adds.
  const auto way = [&](std::size_t a, std::size_t b) {
    const double seen = displacement(a, b);
    return std::sqrt(std::max(0.0, seen * seen - 2 * (at(a).variance + at(b).variance)));
  };
  const std::size_t last = closed_ - 1;
  const std::size_t nearFrom = index - std::min<std::size_t>(index, 1);
  const std::size_t nearTo = std::min(index + 1, last);
  const std::size_t from = index - std::min(index, kReach);
  const std::size_t to = std::min(index + kReach, last);
  Motion motion;
  if (from == to) {
    motion.speed = at(index).speed;
    return motion;
  }
  const double ground = displacement(nearFrom, nearTo) / (at(nearTo).time - at(nearFrom).time);
  const double reported = at(index).speed;
  const bool believed = ground < kSurelyMovingMetersPerSecond || reported > kLeastShare * ground;
  motion.speed = believed ? std::min(ground, reported) : ground;

  // The slope of a straight line through the altitudes, by least squares.
  double meanTime = 0, meanAltitude = 0;
  const auto count = static_cast<double>(to - from + 1);
  for (std::size_t i = from; i <= to; ++i) {
    meanTime += at(i).time / count;
    meanAltitude += at(i).altitude / count;
  }
  double products = 0, squares = 0, path = 0;
  for (std::size_t i = from; i <= to; ++i) {
    const double dt = at(i).time - meanTime;
    products += dt * (at(i).altitude - meanAltitude);
    squares += dt * dt;
    if (i > from) path += way(i - 1, i);
  }
  motion.verticalSpeed = squares > 0 ? products / squares : 0;
  motion.straightness = path > 0 ? std::min(1.0, way(from, to) / path) : 1;
  return motion;
}

}  // namespace ombrix::detail

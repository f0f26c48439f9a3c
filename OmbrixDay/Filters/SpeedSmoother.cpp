#include "OmbrixDay/Filters/SpeedSmoother.hpp"

#include <algorithm>
#include <cmath>

#include "OmbrixDay/Filters/SmallMedian.hpp"

namespace ombrix::detail {
namespace {

constexpr double kForgetting = 1.0 / 64;  // Share of the newest second difference.
constexpr double kQuiet = 0.8;            // m/s: second differences of a receiver's own speeds.
constexpr double kVeryRough = 2.5;        // m/s: those of noisy positions.
constexpr double kReachSeconds = 8;       // Fixes further off are left out of a mean.
// A skier's own changes of speed stay below these within five fixes (made-up hills of 100 m ask for
// a twentieth of the speed, and the tracks that were tried show receivers off by half and more).
constexpr double kJolt = 1;         // m/s
constexpr double kJoltShare = 0.1;  // of the median
constexpr double kOwnChange = 2.5;  // m/s^2, what a skier's own speed changes by at most
constexpr double kWrongSpeed = 7;   // m/s, between fixes that are two apart at most

}  // namespace

std::optional<CleanFix> SpeedSmoother::push(const CleanFix& fix) {
  ring_[end_ % kRing] = fix;
  ++end_;
  if (end_ >= 3) {
    const double second =
        std::abs(at(end_ - 2).speed - (at(end_ - 3).speed + at(end_ - 1).speed) / 2);
    // Clipped, so that a single jump has little weight.
    roughness_ += kForgetting * (std::min(second, 4 * roughness_ + 0.1) - roughness_);
  }
  if (end_ - next_ <= kReach) return std::nullopt;
  return smooth(next_++);
}

std::optional<CleanFix> SpeedSmoother::drain() {
  if (next_ == end_) return std::nullopt;
  return smooth(next_++);
}

CleanFix SpeedSmoother::smooth(std::size_t index) const {
  CleanFix fix = at(index);
  fix.speed = fittedSpeed(index);
  auto [from, to] = reach(index, kReach);
  // At the edge of a gap more fixes on this side of it are used to estimate the usual speed.
  while (from > 0 && to - from < 2 * kReach && end_ - from < kRing &&
         fix.time - at(from - 1).time <= kReachSeconds) {
    --from;
  }
  fix.steadySpeed = fix.speed;
  // It is rarely far from the median, and counting is cheaper than sorting.
  const double low = (fix.speed - kJolt) / (1 + kJoltShare);
  const double high = (fix.speed + kJolt) / (1 - kJoltShare);
  std::size_t below = 0, above = 0;
  for (std::size_t i = from; i <= to; ++i) {
    below += at(i).speed < low ? 1U : 0U;
    above += at(i).speed > high ? 1U : 0U;
  }
  if (2 * std::max(below, above) < to - from + 1 || isGradual(from, to)) return fix;
  SmallMedian<2 * kReach + 2> speeds;
  for (std::size_t i = from; i <= to; ++i) speeds.add(at(i).speed);
  if ((to - from) % 2 != 0) speeds.add(0);  // Of two in the middle the lower one.
  const double median = speeds.median();
  if (median < low || median > high) fix.steadySpeed = median;
  return fix;
}

/// Whether speeds change no faster than a skier's own do: a receiver that catches up jumps.
bool SpeedSmoother::isGradual(std::size_t from, std::size_t to) const {
  for (std::size_t i = from; i < to; ++i) {
    const double change = std::abs(at(i + 1).speed - at(i).speed);
    if (change > kOwnChange * (at(i + 1).time - at(i).time)) return false;
  }
  return true;
}

std::pair<std::size_t, std::size_t> SpeedSmoother::reach(std::size_t index,
                                                         std::size_t most) const {
  const double time = at(index).time;
  std::size_t from = index, to = index;
  while (from > 0 && index - from < most && time - at(from - 1).time <= kReachSeconds) --from;
  while (to + 1 < end_ && to - index < most && at(to + 1).time - time <= kReachSeconds) ++to;
  return {from, to};
}

double SpeedSmoother::fittedSpeed(std::size_t index) const {
  const CleanFix& fix = at(index);
  if (roughness_ < kQuiet) {
    if (index < 2 || index + 2 >= end_) return fix.speed;
    const double span = at(index + 2).time - at(index - 2).time;
    const bool even = std::abs(at(index + 1).time - fix.time - span / 4) < 0.1 * span &&
                      std::abs(fix.time - at(index - 1).time - span / 4) < 0.1 * span;
    if (!even || span > kReachSeconds) return fix.speed;
    const double fitted = (17 * fix.speed + 12 * (at(index - 1).speed + at(index + 1).speed) -
                           3 * (at(index - 2).speed + at(index + 2).speed)) /
                          35;
    double highest = 0, second = 0, lowest = fix.speed;
    for (std::size_t i = index - 2; i <= index + 2; ++i) {
      const double speed = at(i).speed;
      // No skier changes speed so fast: a wrong neighbour says nothing about this one.
      if (std::abs(speed - fix.speed) > kWrongSpeed) return fix.speed;
      second = std::max(second, std::min(highest, speed));
      highest = std::max(highest, speed);
      if (i > index - 2 && i < index + 2) lowest = std::min(lowest, speed);
    }
    // A parabola overshoots when a skier brakes hard. A value of a single fix is noise.
    return std::clamp(fitted, lowest, std::max(lowest, second));
  }
  const auto [from, to] = reach(index, roughness_ < kVeryRough ? 2 : kReach);
  double sum = 0;
  for (std::size_t i = from; i <= to; ++i) sum += at(i).speed;
  return sum / static_cast<double>(to - from + 1);
}

}  // namespace ombrix::detail

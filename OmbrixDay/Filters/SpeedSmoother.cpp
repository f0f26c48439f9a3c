#include "OmbrixDay/Filters/SpeedSmoother.hpp"

#include <algorithm>
#include <cmath>

namespace ombrix::detail {
namespace {

constexpr double kForgetting = 1.0 / 64;  // Share of the newest second difference.
constexpr double kQuiet = 0.8;            // m/s: second differences of a receiver's own speeds.
constexpr double kVeryRough = 2.5;        // m/s: those of noisy positions.
constexpr double kReachSeconds = 8;       // Fixes further off are left out of a mean.

}  // namespace

std::optional<CleanFix> SpeedSmoother::push(const CleanFix& fix) {
  ring_[end_ % kRing] = fix;
  ++end_;
  if (end_ >= 3) {
    const double second =
        std::abs(at(end_ - 2).speed - (at(end_ - 3).speed + at(end_ - 1).speed) / 2);
    // Clipped, so that a single jump says little.
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
  const auto reach = [&](std::size_t most) {
    std::size_t from = index, to = index;
    while (from > 0 && index - from < most && fix.time - at(from - 1).time <= kReachSeconds) --from;
    while (to + 1 < end_ && to - index < most && at(to + 1).time - fix.time <= kReachSeconds) ++to;
    return std::pair(from, to);
  };
  if (roughness_ < kQuiet) {
    if (index < 2 || index + 2 >= end_) return fix;
    const double span = at(index + 2).time - at(index - 2).time;
    const bool even = std::abs(at(index + 1).time - fix.time - span / 4) < 0.1 * span &&
                      std::abs(fix.time - at(index - 1).time - span / 4) < 0.1 * span;
    if (!even || span > kReachSeconds) return fix;
    const double fitted = (17 * fix.speed + 12 * (at(index - 1).speed + at(index + 1).speed) -
                           3 * (at(index - 2).speed + at(index + 2).speed)) /
                          35;
    // A parabola shoots over where one brakes hard.
    const auto [low, high] = std::minmax({fix.speed, at(index - 1).speed, at(index + 1).speed});
    fix.speed = std::clamp(fitted, low, high);
    return fix;
  }
  const auto [from, to] = reach(roughness_ < kVeryRough ? 2 : kReach);
  double sum = 0;
  for (std::size_t i = from; i <= to; ++i) sum += at(i).speed;
  fix.speed = sum / static_cast<double>(to - from + 1);
  return fix;
}

}  // namespace ombrix::detail

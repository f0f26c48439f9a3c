#include "OmbrixDay/Segments/SegmentDecoder.hpp"

#include <algorithm>
#include <cmath>

namespace ombrix::detail {
namespace {

// The parameters; docs/day.md says where each comes from. Speeds in m/s.
constexpr double kRestSpeedSpread = 0.4;
constexpr double kLogOfRestSpread = -1.6094;  // Halved: speeds are not negative.
constexpr double kVerticalNoise = 0.55;       // Of a vertical speed over four ticks.
constexpr double kLogOfVerticalNoise = -0.5978;
constexpr double kSlopeSpread = 0.15;
constexpr double kFlatSpread = 0.06;
constexpr double kBend = 0.05;     // Lack of straightness that a lift still shows.
constexpr double kMostMisfit = 7;  // No single figure rules a kind out.
constexpr double kMostBendMisfit = 3;

struct Moving {
  double logSpeed;        // Logarithm of the median speed.
  double logSpread;       // Its spread,
  double logOfLogSpread;  // and the logarithm of that.
  double slope;           // Mean of vertical over horizontal speed.
};
constexpr Moving kWalk{0.10, 0.45, -0.7985, 0};     // 1.1 m/s
constexpr Moving kLift{1.39, 0.55, -0.5978, 0.30};  // 4 m/s
constexpr Moving kRun{1.95, 0.65, -0.4308, -0.24};  // 7 m/s

// Logarithms of the chances to pass from one kind to another within a tick, in the order run,
// lift, pause, walk. A lift takes minutes; runs end at lifts and in pauses.
constexpr std::array<std::array<double, kKinds>, kKinds> kPassing = {{
    {-0.05, -6.5, -4.0, -4.5},
    {-5.0, -0.02, -4.5, -6.0},
    {-4.0, -4.0, -0.08, -3.5},
    {-4.0, -4.0, -3.5, -0.08},
}};

double squared(double value) { return value * value; }

/// The logarithm of a normal density, without the constant that all of them share.
double gaussian(double deviation, double spread, double logOfSpread) {
  return -std::min(kMostMisfit, squared(deviation / spread) / 2) - logOfSpread;
}

double moving(const Moving& kind, double logSpeed, const Motion& motion, double slopeSpread) {
  const double variance = squared(kVerticalNoise) + squared(slopeSpread * motion.speed);
  return gaussian(logSpeed - kind.logSpeed, kind.logSpread, kind.logOfLogSpread) - logSpeed +
         gaussian(motion.verticalSpeed - kind.slope * motion.speed, std::sqrt(variance),
                  std::log(variance) / 2);
}

}  // namespace

std::array<double, kKinds> fitOf(const Motion& motion) {
  const double logSpeed = std::log(std::max(motion.speed, 0.05));
  const double bend = -std::min(kMostBendMisfit, squared((1 - motion.straightness) / kBend) / 2);
  std::array<double, kKinds> fits;
  fits[static_cast<std::size_t>(SegmentKind::run)] = moving(kRun, logSpeed, motion, kSlopeSpread);
  fits[static_cast<std::size_t>(SegmentKind::lift)] =
      moving(kLift, logSpeed, motion, kSlopeSpread) + bend;
  fits[static_cast<std::size_t>(SegmentKind::pause)] =
      gaussian(motion.speed, kRestSpeedSpread, kLogOfRestSpread) +
      gaussian(motion.verticalSpeed, kVerticalNoise, kLogOfVerticalNoise);
  fits[static_cast<std::size_t>(SegmentKind::walk)] = moving(kWalk, logSpeed, motion, kFlatSpread);
  return fits;
}

void SegmentDecoder::push(const Motion& motion, std::vector<SegmentKind>& decided) {
  const auto fits = fitOf(motion);
  Backs backs{};
  if (ticks_ == 0) {
    scores_ = fits;
  } else {
    std::array<double, kKinds> next;
    for (std::size_t to = 0; to < kKinds; ++to) {
      next[to] = scores_[0] + kPassing[0][to];
      for (std::size_t from = 1; from < kKinds; ++from) {
        const double score = scores_[from] + kPassing[from][to];
        if (score > next[to]) {
          next[to] = score;
          backs[to] = static_cast<std::uint8_t>(from);
        }
      }
      next[to] += fits[to];
    }
    const double best = *std::ranges::max_element(next);  // Only differences matter.
    for (std::size_t i = 0; i < kKinds; ++i) scores_[i] = next[i] - best;
  }
  backs_[ticks_ % kMostPending] = backs;
  ++ticks_;

  // Follow all survivors back until they meet.
  std::array<std::size_t, kKinds> states = {0, 1, 2, 3};
  for (std::size_t tick = ticks_ - 1; tick > decided_; --tick) {
    for (std::size_t& state : states) state = backs_[tick % kMostPending][state];
    if (std::ranges::all_of(states, [&](std::size_t state) { return state == states[0]; })) {
      decideUpTo(tick, states[0], decided);
      return;
    }
  }
  if (pending() == kMostPending) {
    std::size_t state = static_cast<std::size_t>(likeliest());
    const std::size_t half = ticks_ - kMostPending / 2;
    for (std::size_t tick = ticks_ - 1; tick >= half; --tick) {
      state = backs_[tick % kMostPending][state];
    }
    decideUpTo(half, state, decided);
  }
}

void SegmentDecoder::finish(std::vector<SegmentKind>& decided) {
  if (pending() > 0) decideUpTo(ticks_, static_cast<std::size_t>(likeliest()), decided);
  ticks_ = decided_ = 0;
}

SegmentKind SegmentDecoder::likeliest() const {
  return static_cast<SegmentKind>(std::ranges::max_element(scores_) - scores_.begin());
}

/// Decides the ticks before `tick`, the last of them being in `state`.
void SegmentDecoder::decideUpTo(std::size_t tick, std::size_t state,
                                std::vector<SegmentKind>& decided) {
  const std::size_t count = tick - decided_;
  decided.resize(decided.size() + count);
  auto out = decided.rbegin();
  for (std::size_t at = tick; at-- > decided_;) {
    *out++ = static_cast<SegmentKind>(state);
    if (at > decided_) state = backs_[at % kMostPending][state];
  }
  decided_ = tick;
}

}  // namespace ombrix::detail

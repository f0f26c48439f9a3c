#include "OmbrixDay/Measuring/DayMeasurer.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <utility>
#include <vector>

#include "OmbrixDay/Filters/FixSieve.hpp"
#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Filters/SpeedSmoother.hpp"
#include "OmbrixDay/Filters/TimeSieve.hpp"
#include "OmbrixDay/Measuring/Detail/SegmentFigures.hpp"
#include "OmbrixDay/Segments/MotionTicks.hpp"
#include "OmbrixDay/Segments/SegmentDecoder.hpp"
#include "OmbrixDay/Segments/SegmentJoiner.hpp"
#include "OmbrixPlatform/Location/Geodesic.hpp"

namespace ombrix {
namespace {

constexpr double kBreakSeconds = 600;  // A longer silence is a break of the recording.
constexpr double kTrustSeconds = 20;   // How often reported speeds are held against positions,
constexpr double kTrustMemory = 0.9;   // how slowly that is forgotten,
constexpr double kLeastTrust = 0.5;    // the least share of the way they must explain,
constexpr double kMostTrust = 2;       // the most they may,
constexpr double kTrustMeters = 50;    // what they may add to that, or lack,
constexpr double kLackMeters = 20;
constexpr double kNoiseMeters = 20;    // and what noise may put between two positions.
constexpr double kSettleSeconds = 60;  // Until then a step shows that the altitude was wrong.
constexpr double kStepMeters = 1;      // More than rounding.
constexpr double kEndSeconds = 5;      // Altitudes around a stretch's end, to judge it by.
constexpr double kHeartRateAgeSeconds = 15;
constexpr double kLeastHeartRate = 20, kMostHeartRate = 260;

bool isSameWalk(const detail::Stretch& before, const detail::Stretch& after) {
  return before.kind == SegmentKind::walk && after.kind == SegmentKind::walk;
}

}  // namespace

struct DayMeasurer::State {
  FixCounts counts;
  detail::TimeSieve times{counts};
  detail::FixSieve sieve{counts};
  detail::SpeedSmoother smoother;
  detail::MotionTicks ticks;
  detail::SegmentDecoder decoder;
  detail::SegmentJoiner joiner;
  detail::AltitudeNoise noise;

  std::vector<DaySample> samples;
  std::vector<DaySegment> segments;
  std::array<int, detail::kKinds> numbers{};
  DayTotals extremes;        ///< The lowest and the highest altitude only,
  DayTotals extremesBefore;  ///< and those when the recording began.
  std::optional<SegmentKind> current;

  // The stretch that is being decoded.
  bool isRecording = false;
  double ticksBegin = 0;
  std::size_t recordingSample = 0;
  double lastStep = 0;  // The sieve's correction of the last altitude.
  std::size_t decidedTicks = 0;
  std::size_t firstTick = 0;
  std::size_t firstSample = 0;
  SegmentKind kind = SegmentKind::pause;

  // A stretch is measured when its successor is known.
  std::optional<detail::Stretch> held;
  double heldBeginAltitude = 0;

  // How well reported speeds explain the distance.
  double wayBySpeed = 0, wayByPlace = 0, speedSinceAnchor = 0;
  double lastSpeed = 0;  // m/s, of the last fix
  double anchorTime = 0, anchorEast = 0, anchorNorth = 0;
  double lastEast = 0, lastNorth = 0;

  std::vector<detail::Motion> motions;
  std::vector<SegmentKind> decided;
  std::vector<detail::Stretch> finals;

  State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  [[nodiscard]] double timeOf(std::size_t sample) const {
    return platform::timeIntervalSince1970(samples[sample].time);
  }

  void take(const CLLocation& fix, double heartRate);
  void sift(std::span<const detail::FedFix> fixes);
  void accept(const detail::CleanFix& fix);
  void settleAltitudes(const detail::CleanFix& fix);
  void dropAnchor(const detail::CleanFix& fix);
  double wayTo(const detail::CleanFix& fix);
  void decodeMotions();
  void endRecording();
  [[nodiscard]] std::size_t sampleAt(double time) const;
  [[nodiscard]] detail::Stretch stretchUpTo(double end, std::size_t endSample) const;
  void add(const detail::Stretch& stretch);
  void measure(const detail::Stretch& stretch);
  void measureHeld(const detail::Stretch* next);
};

void DayMeasurer::State::take(const CLLocation& fix, double heartRate) {
  ++counts.read;
  if (samples.size() >= kMostSamples) {
    ++counts.beyondLimit;
  } else if (!isOnGlobe(fix)) {
    ++counts.offTheGlobe;
  } else if (!fix.isAccurateForStats()) {
    ++counts.inaccurate;
  } else {
    sift(times.push({fix, heartRate}));
  }
}

void DayMeasurer::State::sift(std::span<const detail::FedFix> fixes) {
  for (const detail::FedFix& fed : fixes) {
    const auto judged = sieve.push(fed);
    if (!judged) continue;
    if (const auto smooth = smoother.push(*judged)) accept(*smooth);
  }
}

void DayMeasurer::State::dropAnchor(const detail::CleanFix& fix) {
  speedSinceAnchor = 0;
  anchorTime = fix.time;
  anchorEast = fix.east;
  anchorNorth = fix.north;
}

/// Metres from the last sample to the next one. The receiver's own speed tells more about the
/// distance than positions a second apart, whose noise adds up; unless the speed is implausible.
double DayMeasurer::State::wayTo(const detail::CleanFix& fix) {
  const DaySample& last = samples.back();
  const double dt = fix.time - platform::timeIntervalSince1970(last.time);
  const double bySpeed = (lastSpeed + fix.speed) / 2 * dt;
  speedSinceAnchor += bySpeed;
  if (dt > detail::kSpeedGapSeconds) {
    dropAnchor(fix);
  } else if (fix.time - anchorTime >= kTrustSeconds) {
    wayBySpeed = kTrustMemory * wayBySpeed + speedSinceAnchor;
    const double chord =
        CLLocation::speedOfComponents(fix.east - anchorEast, fix.north - anchorNorth);
    wayByPlace = kTrustMemory * wayByPlace + std::max(0.0, chord - kNoiseMeters);
    dropAnchor(fix);
  }
  const bool isTrusted = wayBySpeed + kLackMeters >= kLeastTrust * wayByPlace &&
                         wayBySpeed <= kMostTrust * wayByPlace + kTrustMeters;
  if (dt <= detail::kSpeedGapSeconds && isTrusted) return bySpeed;
  return platform::geodesicDistance({last.coordinate.latitude, last.coordinate.longitude},
                                    {fix.latitude, fix.longitude});
}

/// A device that has just begun may not know its altitude yet: where that steps, what was recorded
/// before was wrong.
void DayMeasurer::State::settleAltitudes(const detail::CleanFix& fix) {
  const double step = fix.recordedAltitude - fix.altitude;
  if (std::abs(step - lastStep) < kStepMeters) return;
  for (std::size_t i = recordingSample; i < samples.size(); ++i) {
    samples[i].altitude = samples[i].steadyAltitude + step;
  }
  extremes = extremesBefore;
}

void DayMeasurer::State::accept(const detail::CleanFix& fix) {
  double distance = samples.empty() ? 0 : samples.back().distance;
  if (isRecording) {
    const double gap = fix.time - timeOf(samples.size() - 1);
    if (gap > kBreakSeconds) {
      const detail::Stretch before = stretchUpTo(timeOf(samples.size() - 1), samples.size());
      endRecording();
      detail::Stretch pause = before;
      pause.kind = SegmentKind::pause;
      pause.isBreak = true;
      pause.begin = before.end;
      pause.end = fix.time;
      pause.firstSample = pause.endSample = samples.size();
      pause.beginAltitude = pause.endAltitude = fix.altitude;
      pause.beginDistance = before.endDistance;
      pause.beginPlace = pause.endPlace = {fix.latitude, fix.longitude};
      add(pause);
    } else {
      distance += wayTo(fix);
      if (fix.time - ticksBegin < kSettleSeconds) settleAltitudes(fix);
    }
  }
  lastSpeed = fix.speed;
  lastStep = fix.recordedAltitude - fix.altitude;
  samples.push_back({.time = platform::dateSince1970(fix.time),
                     .coordinate = {fix.latitude, fix.longitude},
                     .altitude = fix.recordedAltitude,
                     .steadyAltitude = fix.altitude,
                     .speed = fix.steadySpeed,
                     .heartRate = fix.heartRate,
                     .distance = distance});
  if (!isRecording) extremesBefore = extremes;
  if (fix.knowsAltitude) {
    const double altitude = fix.recordedAltitude;
    extremes.minAltitude = std::min(extremes.minAltitude.value_or(altitude), altitude);
    extremes.maxAltitude = std::max(extremes.maxAltitude.value_or(altitude), altitude);
  }
  if (!isRecording) {
    isRecording = true;
    ticks.restart(fix.time);
    ticksBegin = fix.time;
    recordingSample = samples.size() - 1;
    dropAnchor(fix);
    decidedTicks = firstTick = 0;
    firstSample = samples.size() - 1;
  }
  ticks.push(fix, motions);
  if (!motions.empty()) decodeMotions();
}

void DayMeasurer::State::decodeMotions() {
  for (const detail::Motion& motion : motions) decoder.push(motion, decided);
  if (!motions.empty()) current = decoder.likeliest();
  motions.clear();
  for (const SegmentKind next : decided) {
    if (decidedTicks == firstTick) kind = next;
    if (next != kind) {
      const double end = ticksBegin + static_cast<double>(decidedTicks) * detail::kTickSeconds;
      const std::size_t endSample = sampleAt(end);
      add(stretchUpTo(end, endSample));
      firstTick = decidedTicks;
      firstSample = endSample;
      kind = next;
    }
    ++decidedTicks;
  }
  decided.clear();
}

void DayMeasurer::State::endRecording() {
  if (!isRecording) return;
  ticks.finish(motions);
  for (const detail::Motion& motion : motions) decoder.push(motion, decided);
  motions.clear();
  decoder.finish(decided);
  decodeMotions();
  add(stretchUpTo(timeOf(samples.size() - 1), samples.size()));
  isRecording = false;
}

/// The first sample at a time or later, at or behind the beginning of the open stretch.
std::size_t DayMeasurer::State::sampleAt(double time) const {
  const auto from = samples.begin() + static_cast<std::ptrdiff_t>(firstSample);
  const auto found = std::lower_bound(
      from, samples.end(), platform::dateSince1970(time),
      [](const DaySample& sample, platform::Date date) { return sample.time < date; });
  return static_cast<std::size_t>(found - samples.begin());
}

detail::Stretch DayMeasurer::State::stretchUpTo(double end, std::size_t endSample) const {
  const double begin = ticksBegin + static_cast<double>(firstTick) * detail::kTickSeconds;
  const std::size_t last = std::min(endSample, samples.size() - 1);
  const detail::Around atBegin = detail::meanAround(samples, firstSample, begin, kEndSeconds);
  const detail::Around atEnd = detail::meanAround(samples, last, end, kEndSeconds);
  return {.kind = kind,
          .begin = begin,
          .end = end,
          .firstSample = firstSample,
          .endSample = endSample,
          .beginAltitude = atBegin.altitude,
          .endAltitude = atEnd.altitude,
          .beginDistance = detail::distanceAt(samples, firstSample, begin),
          .endDistance = detail::distanceAt(samples, endSample, end),
          .beginPlace = atBegin.place,
          .endPlace = atEnd.place};
}

void DayMeasurer::State::add(const detail::Stretch& stretch) {
  joiner.add(stretch, finals);
  for (const detail::Stretch& final : finals) measure(final);
  finals.clear();
}

void DayMeasurer::State::measure(const detail::Stretch& stretch) {
  if (held && isSameWalk(*held, stretch)) {
    detail::extend(*held, stretch);
    return;
  }
  if (held) {
    measureHeld(&stretch);
  } else {
    heldBeginAltitude = detail::altitudeBetween(nullptr, &stretch, samples);
  }
  held = stretch;
}

void DayMeasurer::State::measureHeld(const detail::Stretch* next) {
  if (held->kind == SegmentKind::pause && !held->isBreak) {
    noise.learn(std::span(samples).subspan(held->firstSample, held->endSample - held->firstSample));
  }
  const double end = detail::altitudeBetween(&*held, next, samples);
  segments.push_back(detail::measured(*held, heldBeginAltitude, end, noise.turnaround(), samples));
  segments.back().number = ++numbers[static_cast<std::size_t>(held->kind)];
  heldBeginAltitude = end;
}

DayMeasurer::DayMeasurer() : state_(std::make_unique<State>()) {}
DayMeasurer::~DayMeasurer() = default;
DayMeasurer::DayMeasurer(DayMeasurer&&) noexcept = default;
DayMeasurer& DayMeasurer::operator=(DayMeasurer&&) noexcept = default;

namespace {

/// Notes the state before a call, to report what it changed.
struct Before {
  std::size_t samples, segments;
  std::optional<SegmentKind> current;
};

}  // namespace

DayChange DayMeasurer::feed(const CLLocation& fix, std::optional<double> heartRate) {
  State& state = *state_;
  const Before before{state.samples.size(), state.segments.size(), state.current};
  const double rate = heartRate.value_or(0);
  state.take(fix, rate >= kLeastHeartRate && rate <= kMostHeartRate ? rate : 0);
  return {state.samples.size() - before.samples, state.segments.size() - before.segments,
          state.current != before.current};
}

DayChange DayMeasurer::finish() {
  State& state = *state_;
  const Before before{state.samples.size(), state.segments.size(), state.current};
  state.sift(state.times.drain());
  while (const auto judged = state.sieve.drain()) {
    if (const auto smooth = state.smoother.push(*judged)) state.accept(*smooth);
  }
  while (const auto smooth = state.smoother.drain()) state.accept(*smooth);
  state.endRecording();
  state.joiner.finish(state.finals);
  for (const detail::Stretch& final : state.finals) state.measure(final);
  state.finals.clear();
  if (state.held) {
    state.measureHeld(nullptr);
    state.held.reset();
  }
  state.current.reset();
  return {state.samples.size() - before.samples, state.segments.size() - before.segments,
          state.current != before.current};
}

std::span<const DaySegment> DayMeasurer::segments() const { return state_->segments; }

std::vector<DaySegment> DayMeasurer::segmentsSoFar() const {
  const State& state = *state_;
  std::vector<DaySegment> segments = state.segments;
  if (state.samples.empty()) return segments;
  std::vector<detail::Stretch> open;
  if (state.held) open.push_back(*state.held);
  detail::SegmentJoiner joiner = state.joiner;
  if (state.isRecording) {
    detail::Stretch last =
        state.stretchUpTo(state.timeOf(state.samples.size() - 1), state.samples.size());
    if (last.end > last.begin) {
      if (state.decidedTicks == state.firstTick) last.kind = state.current.value_or(last.kind);
      joiner.add(last, open);
    }
  }
  joiner.finish(open);
  for (std::size_t i = open.size(); i-- > 1;) {
    if (!isSameWalk(open[i - 1], open[i])) continue;
    detail::extend(open[i - 1], open[i]);
    open.erase(open.begin() + static_cast<std::ptrdiff_t>(i));
  }
  double altitude = state.heldBeginAltitude;
  if (!state.held && !open.empty()) {
    altitude = detail::altitudeBetween(nullptr, &open.front(), state.samples);
  }
  auto numbers = state.numbers;
  for (std::size_t i = 0; i < open.size(); ++i) {
    const detail::Stretch* next = i + 1 < open.size() ? &open[i + 1] : nullptr;
    const double end = detail::altitudeBetween(&open[i], next, state.samples);
    segments.push_back(
        detail::measured(open[i], altitude, end, state.noise.turnaround(), state.samples));
    segments.back().number = ++numbers[static_cast<std::size_t>(open[i].kind)];
    altitude = end;
  }
  return segments;
}

std::optional<SegmentKind> DayMeasurer::current() const { return state_->current; }

namespace {

DayTotals totalsOf(std::span<const DaySegment> segments, DayTotals totals) {
  for (const DaySegment& segment : segments) detail::addToTotals(totals, segment);
  return totals;
}

}  // namespace

DayTotals DayMeasurer::totals() const { return totalsOf(segmentsSoFar(), state_->extremes); }

const FixCounts& DayMeasurer::counts() const { return state_->counts; }

std::span<const DaySample> DayMeasurer::samples() const { return state_->samples; }

Day DayMeasurer::takeDay() {
  finish();
  Day day;
  day.counts = state_->counts;
  day.totals = totalsOf(state_->segments, state_->extremes);
  day.segments = std::move(state_->segments);
  day.samples = std::move(state_->samples);
  state_ = std::make_unique<State>();
  return day;
}

namespace {

/// Hands out a recording's fixes in order. One without an altitude gets it from the nearest ones
/// that have it, in a straight line over time between two; without any it stays as it is.
class WithAltitudes {
 public:
  explicit WithAltitudes(std::span<const CLLocation> fixes) : fixes_(fixes) {}

  CLLocation at(std::size_t index) {
    CLLocation fix = fixes_[index];
    if (hasAltitude(fix)) {
      if (isKnown(fix)) before_ = &fixes_[index];
      return fix;
    }
    after_ = std::max(after_, index);
    while (after_ < fixes_.size() && !isKnown(fixes_[after_])) ++after_;
    const CLLocation* after = after_ < fixes_.size() ? &fixes_[after_] : nullptr;
    if (before_ == nullptr && after == nullptr) return fix;
    const CLLocation& from = before_ != nullptr ? *before_ : *after;
    const CLLocation& to = after != nullptr ? *after : *before_;
    const double span = (to.timestamp - from.timestamp).count();
    const double part = span > 0 ? (fix.timestamp - from.timestamp).count() / span : 0;
    fix.altitude = from.altitude + std::clamp(part, 0.0, 1.0) * (to.altitude - from.altitude);
    return fix;
  }

 private:
  static bool isKnown(const CLLocation& fix) {
    return hasAltitude(fix) && isOnGlobe(fix) && fix.isAccurateForStats();
  }

  std::span<const CLLocation> fixes_;
  const CLLocation* before_ = nullptr;
  std::size_t after_ = 0;
};

}  // namespace

Day measureDay(std::span<const CLLocation> fixes, std::span<const HeartRate> heartRates) {
  DayMeasurer measurer;
  WithAltitudes withAltitudes(fixes);
  std::size_t next = 0;
  for (std::size_t i = 0; i < fixes.size(); ++i) {
    const CLLocation fix = withAltitudes.at(i);
    while (next < heartRates.size() && heartRates[next].time <= fix.timestamp) ++next;
    if (next > 0 && heartRates[next - 1].time > fix.timestamp) {  // A fix before was ahead of time.
      const auto later = std::ranges::upper_bound(heartRates, fix.timestamp, {}, &HeartRate::time);
      next = static_cast<std::size_t>(later - heartRates.begin());
    }
    std::optional<double> rate;
    if (next > 0 && (fix.timestamp - heartRates[next - 1].time).count() <= kHeartRateAgeSeconds) {
      rate = heartRates[next - 1].beatsPerMinute;
    }
    measurer.feed(fix, rate);
  }
  return measurer.takeDay();
}

}  // namespace ombrix

#include "OmbrixDay/Measuring/Detail/SegmentFigures.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "OmbrixDay/Filters/SmallMedian.hpp"
#include "OmbrixDay/Measuring/Detail/VerticalMeter.hpp"

namespace ombrix::detail {
namespace {

constexpr double kRestMetersPerSecond = 0.5;
constexpr double kLeastTurnaroundMeters = 10;
constexpr double kMostTurnaroundMeters = 40;
constexpr double kTurnaroundPerNoise = 2.5;
constexpr double kRideTurnaround = 2;  // Times that on runs and lifts, which go one way.
constexpr double kMostRideTurnaroundMeters = 60;
constexpr double kRestSeconds = 300;  // Of a long pause only so much counts for its ends.
constexpr double kEdgeSeconds = 6;    // A pause's ends may belong to its neighbours.
constexpr std::size_t kLeastRestSamples = 8;
constexpr std::size_t kLeastNoiseSamples = 30;
constexpr double kLagSeconds = 30;     // Of a pause with few fixes: then the device saves power.
constexpr double kCrestSeconds = 15;   // How far a crest may lie from a boundary.
constexpr double kSmoothSeconds = 5;   // To either side, of altitudes.
constexpr double kLineSeconds = 10;    // Of a line through altitudes that ends at a break.
constexpr std::size_t kEvenReach = 5;  // Samples to either side, of a lift's greatest speed,
constexpr double kEvenSeconds = 30;    // and seconds.

double secondsOf(const DaySample& sample) { return platform::timeIntervalSince1970(sample.time); }

/// The mean altitude at rest over the part of a pause that lies between two times.
std::optional<double> restAltitude(std::span<const DaySample> samples, const Stretch& pause,
                                   double from, double to) {
  if (pause.isBreak) return std::nullopt;
  double sum = 0, sumAtRest = 0;
  std::size_t count = 0, countAtRest = 0;
  for (std::size_t i = pause.firstSample; i < pause.endSample; ++i) {
    const double time = secondsOf(samples[i]);
    if (time < from || time > to) continue;
    sum += samples[i].steadyAltitude;
    ++count;
    if (samples[i].speed >= kRestMetersPerSecond) continue;
    sumAtRest += samples[i].steadyAltitude;
    ++countAtRest;
  }
  if (countAtRest >= kLeastRestSamples) return sumAtRest / static_cast<double>(countAtRest);
  if (count >= kLeastRestSamples) return sum / static_cast<double>(count);
  return std::nullopt;
}

/// The altitude at a time beside which nothing was recorded on one side: the mean of what was
/// recorded on the other side would be that of some seconds earlier, or later.
double altitudeAtEdge(std::span<const DaySample> samples, std::size_t near, double time) {
  near = std::min(near, samples.size() - 1);
  if (near > 0 &&
      std::abs(secondsOf(samples[near - 1]) - time) < std::abs(secondsOf(samples[near]) - time)) {
    --near;
  }
  std::size_t from = near, to = near;
  while (from > 0 && secondsOf(samples[from - 1]) >= time - kLineSeconds) --from;
  while (to + 1 < samples.size() && secondsOf(samples[to + 1]) <= time + kLineSeconds) ++to;
  const double part = 1.0 / static_cast<double>(to - from + 1);
  double offset = 0, altitude = 0, products = 0, squares = 0;
  for (std::size_t i = from; i <= to; ++i) {
    offset += part * (secondsOf(samples[i]) - time);
    altitude += part * samples[i].steadyAltitude;
  }
  for (std::size_t i = from; i <= to; ++i) {
    const double off = secondsOf(samples[i]) - time - offset;
    products += off * (samples[i].steadyAltitude - altitude);
    squares += off * off;
  }
  return squares > 0 ? altitude - products / squares * offset : altitude;
}

/// Whether an altimeter that lags behind goes on through a pause, which a device that saves power
/// tells by a few fixes only: the height is the ride's.
bool goesOn(const Stretch& ride, const Stretch& pause) {
  const double climb = ride.endAltitude - ride.beginAltitude;
  const bool isLong = !pause.isBreak && pause.end - pause.begin >= kLagSeconds;
  return isLong && climb * (pause.endAltitude - pause.beginAltitude) > 0;
}

/// The seconds between two samples in a row that lie in a stretch, or 0 if one was at rest.
double movingSeconds(const DaySample& from, const DaySample& to, const Stretch& stretch) {
  const double begin = secondsOf(from), end = secondsOf(to);
  const bool isGap = end - begin > kSpeedGapSeconds;
  const double speed = isGap ? (to.distance - from.distance) / (end - begin) : from.speed;
  if (speed < kRestMetersPerSecond) return 0;
  return std::max(0.0, std::min(end, stretch.end) - std::max(begin, stretch.begin));
}

/// The median of the speeds around a sample of a stretch, and no more than the displacement over
/// half a minute: lifts run evenly and straight.
double evenSpeed(std::span<const DaySample> samples, const Stretch& stretch, std::size_t index) {
  SmallMedian<2 * kEvenReach + 1> speeds;
  const double time = secondsOf(samples[index]);
  const std::size_t from = std::max(stretch.firstSample, index - std::min(index, kEvenReach));
  const std::size_t to = std::min(stretch.endSample, index + kEvenReach + 1);
  for (std::size_t i = from; i < to; ++i) {
    if (std::abs(secondsOf(samples[i]) - time) <= kEvenSeconds) speeds.add(samples[i].speed);
  }
  std::size_t first = index, last = index;
  const auto span = [&] { return secondsOf(samples[last]) - secondsOf(samples[first]); };
  while (span() < kEvenSeconds && (first > stretch.firstSample || last + 1 < stretch.endSample)) {
    if (first > stretch.firstSample) --first;
    if (last + 1 < stretch.endSample) ++last;
  }
  if (span() < kEvenSeconds) return speeds.median();
  const double line = samples[first].coordinate.distanceTo(samples[last].coordinate);
  return std::min(speeds.median(), line / span());
}

}  // namespace

void AltitudeNoise::learn(std::span<const DaySample> pause) {
  double mean = 0, squares = 0, count = 0;
  for (const DaySample& sample : pause) {  // Welford
    if (sample.speed >= kRestMetersPerSecond) continue;
    ++count;
    const double off = sample.steadyAltitude - mean;
    mean += off / count;
    squares += off * (sample.steadyAltitude - mean);
  }
  if (count < kLeastNoiseSamples) return;
  const double variance = squares / (count - 1);
  variance_ = knows_ ? variance_ + (variance - variance_) / 4 : variance;
  knows_ = true;
}

double AltitudeNoise::turnaround() const {
  return std::clamp(kTurnaroundPerNoise * std::sqrt(variance_), kLeastTurnaroundMeters,
                    kMostTurnaroundMeters);
}

double distanceAt(std::span<const DaySample> samples, std::size_t after, double time) {
  if (after >= samples.size()) return samples.back().distance;
  const double end = secondsOf(samples[after]);
  if (after == 0 || end <= time) return samples[after].distance;
  const DaySample& before = samples[after - 1];
  const double begin = secondsOf(before);
  const double part = std::clamp((time - begin) / (end - begin), 0.0, 1.0);
  return before.distance + part * (samples[after].distance - before.distance);
}

Around meanAround(std::span<const DaySample> samples, std::size_t near, double time,
                  double seconds) {
  near = std::min(near, samples.size() - 1);
  while (near > 0 && secondsOf(samples[near]) > time) --near;
  while (near + 1 < samples.size() && secondsOf(samples[near]) < time) ++near;
  std::size_t from = near, to = near;
  while (from > 0 && secondsOf(samples[from - 1]) >= time - seconds) --from;
  while (to + 1 < samples.size() && secondsOf(samples[to + 1]) <= time + seconds) ++to;
  // Differences from one of them, so that a day may cross the date line.
  const CLLocationCoordinate2D origin = samples[near].coordinate;
  Around mean{0, origin};
  const auto add = [&](const DaySample& sample, double part) {
    mean.altitude += part * sample.steadyAltitude;
    mean.place.latitude += part * (sample.coordinate.latitude - origin.latitude);
    mean.place.longitude +=
        part * std::remainder(sample.coordinate.longitude - origin.longitude, 360);
  };
  const double after = secondsOf(samples[near]);
  const double before = near > 0 ? secondsOf(samples[near - 1]) : after;
  if (from == to && after - time > seconds && time > before) {
    const double part = (time - before) / (after - before);
    add(samples[near - 1], 1 - part);
    add(samples[near], part);
    return mean;
  }
  for (std::size_t i = from; i <= to; ++i)
    add(samples[i], 1.0 / static_cast<double>(to - from + 1));
  return mean;
}

double altitudeBetween(const Stretch* before, const Stretch* after,
                       std::span<const DaySample> samples) {
  if (before != nullptr && before->kind == SegmentKind::pause) {
    const double from = std::max(before->begin + kEdgeSeconds, before->end - kRestSeconds);
    if (const auto rest = restAltitude(samples, *before, from, before->end - kEdgeSeconds)) {
      return *rest;
    }
  }
  if (after != nullptr && after->kind == SegmentKind::pause) {
    const double to = std::min(after->end - kEdgeSeconds, after->begin + kRestSeconds);
    if (const auto rest = restAltitude(samples, *after, after->begin + kEdgeSeconds, to)) {
      return *rest;
    }
    if (before != nullptr && goesOn(*before, *after)) {
      return meanAround(samples, after->endSample, after->end, kSmoothSeconds).altitude;
    }
  }
  const double time = before != nullptr ? before->end : after->begin;
  const std::size_t near = before != nullptr ? before->endSample : after->firstSample;
  if (before == nullptr || after == nullptr || before->isBreak || after->isBreak) {
    return altitudeAtEdge(samples, near, time);
  }
  double altitude = meanAround(samples, near, time, kSmoothSeconds).altitude;
  const bool rises = before->endAltitude > before->beginAltitude;
  const bool thenRises = after->endAltitude > after->beginAltitude;
  if (rises == thenRises) return altitude;
  for (double off = -kCrestSeconds; off <= kCrestSeconds; off += kSmoothSeconds / 2) {
    const double smooth = meanAround(samples, near, time + off, kSmoothSeconds).altitude;
    altitude = rises ? std::max(altitude, smooth) : std::min(altitude, smooth);
  }
  return altitude;
}

DaySegment measured(const Stretch& stretch, double beginAltitude, double endAltitude,
                    double turnaround, std::span<const DaySample> samples) {
  DaySegment segment;
  segment.kind = stretch.kind;
  segment.begin = platform::dateSince1970(stretch.begin);
  segment.end = platform::dateSince1970(stretch.end);
  segment.firstSample = stretch.firstSample;
  segment.endSample = stretch.endSample;
  segment.beginAltitude = beginAltitude;
  segment.endAltitude = endAltitude;
  SegmentFigures& figures = segment.figures;
  figures.seconds = stretch.end - stretch.begin;

  const bool isPause = stretch.kind == SegmentKind::pause;
  const bool isRide = stretch.kind == SegmentKind::run || stretch.kind == SegmentKind::lift;
  const bool isNoisy = turnaround > kLeastTurnaroundMeters;
  VerticalMeter meter(beginAltitude, isRide && isNoisy ? std::min(kRideTurnaround * turnaround,
                                                                  kMostRideTurnaroundMeters)
                                                       : turnaround);
  double smoothSum = 0, heartSum = 0;
  if (stretch.firstSample > 0 && stretch.firstSample < samples.size()) {
    figures.movingSeconds +=
        movingSeconds(samples[stretch.firstSample - 1], samples[stretch.firstSample], stretch);
  }
  std::size_t from = stretch.firstSample, to = stretch.firstSample;
  for (std::size_t i = stretch.firstSample; i < stretch.endSample; ++i) {
    const DaySample& sample = samples[i];
    const double time = secondsOf(sample);
    while (to < stretch.endSample && secondsOf(samples[to]) <= time + kSmoothSeconds) {
      smoothSum += samples[to++].steadyAltitude;
    }
    while (secondsOf(samples[from]) < time - kSmoothSeconds) {
      smoothSum -= samples[from++].steadyAltitude;
    }
    if (sample.speed >= kRestMetersPerSecond && !isPause) {
      meter.push(smoothSum / static_cast<double>(to - from));
    }
    if (i + 1 < samples.size()) {
      figures.movingSeconds += movingSeconds(sample, samples[i + 1], stretch);
    }
    if (sample.speed > figures.maxSpeedMetersPerSecond) {
      const bool isLift = stretch.kind == SegmentKind::lift;
      const double speed = isLift ? evenSpeed(samples, stretch, i) : sample.speed;
      figures.maxSpeedMetersPerSecond = std::max(figures.maxSpeedMetersPerSecond, speed);
    }
    if (sample.heartRate > 0) {
      heartSum += sample.heartRate;
      ++figures.heartRates;
      figures.maxHeartRate = std::max(figures.maxHeartRate.value_or(0), sample.heartRate);
    }
  }
  if (figures.heartRates > 0) {
    figures.averageHeartRate = heartSum / static_cast<double>(figures.heartRates);
  }
  if (isPause) {
    figures.movingSeconds = 0;
    return segment;
  }
  meter.finish(endAltitude);
  figures.ascentMeters = meter.ascent();
  figures.descentMeters = meter.descent();
  figures.distanceMeters = distanceAt(samples, stretch.endSample, stretch.end) -
                           distanceAt(samples, stretch.firstSample, stretch.begin);
  if (figures.movingSeconds > 0 && figures.seconds > 0) {
    // The way may come from places, the speeds from their medians. At the greatest speed the way
    // takes at least so long; only if the whole time is too short for it, it was faster.
    figures.maxSpeedMetersPerSecond =
        std::max(figures.maxSpeedMetersPerSecond, figures.distanceMeters / figures.seconds);
    if (figures.maxSpeedMetersPerSecond > 0) {
      figures.movingSeconds =
          std::max(figures.movingSeconds, figures.distanceMeters / figures.maxSpeedMetersPerSecond);
    }
    figures.averageSpeedMetersPerSecond = figures.distanceMeters / figures.movingSeconds;
  }
  if (figures.distanceMeters > 0) {
    segment.slopeDegrees =
        std::atan2(segment.vertical(), figures.distanceMeters) * 180 / std::numbers::pi;
  }
  return segment;
}

namespace {

void add(SegmentFigures& sum, const SegmentFigures& figures) {
  sum.seconds += figures.seconds;
  sum.movingSeconds += figures.movingSeconds;
  sum.distanceMeters += figures.distanceMeters;
  sum.ascentMeters += figures.ascentMeters;
  sum.descentMeters += figures.descentMeters;
  sum.maxSpeedMetersPerSecond =
      std::max(sum.maxSpeedMetersPerSecond, figures.maxSpeedMetersPerSecond);
  if (sum.movingSeconds > 0) {
    sum.averageSpeedMetersPerSecond = sum.distanceMeters / sum.movingSeconds;
  }
  if (figures.heartRates == 0) return;
  const auto before = static_cast<double>(sum.heartRates);
  const auto more = static_cast<double>(figures.heartRates);
  sum.averageHeartRate =
      (before * sum.averageHeartRate.value_or(0) + more * *figures.averageHeartRate) /
      (before + more);
  sum.maxHeartRate = std::max(sum.maxHeartRate.value_or(0), *figures.maxHeartRate);
  sum.heartRates += figures.heartRates;
}

SegmentFigures& figuresOf(DayTotals& totals, SegmentKind kind) {
  switch (kind) {
    case SegmentKind::run:
      return totals.run;
    case SegmentKind::lift:
      return totals.lift;
    case SegmentKind::pause:
      return totals.pause;
    case SegmentKind::walk:
      break;
  }
  return totals.walk;
}

}  // namespace

void addToTotals(DayTotals& totals, const DaySegment& segment) {
  if (!totals.begin) totals.begin = segment.begin;
  totals.end = segment.end;
  if (segment.kind == SegmentKind::run) ++totals.runs;
  if (segment.kind == SegmentKind::lift) ++totals.lifts;
  SegmentFigures figures = segment.figures;
  if (segment.kind == SegmentKind::pause) figures.maxSpeedMetersPerSecond = 0;
  add(totals.all, figures);
  add(figuresOf(totals, segment.kind), figures);
}

}  // namespace ombrix::detail

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixCore/Location/CLLocationCoordinate2D.hpp"
#include "OmbrixPlatform/Values/Date.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix {

/// The kinds of a day's segments. Raw values: "run", "lift", "pause", "walk".
enum class SegmentKind : std::uint8_t {
  run,    ///< Downhill, pauses on the slope included.
  lift,   ///< Carried uphill, stops of the lift included.
  pause,  ///< At rest, or no recording for more than ten minutes.
  walk,   ///< All other motion under one's own power: climbing, pushing, queueing.
};

/// How many fixes of a recording were used or left out.
struct FixCounts {
  std::size_t read = 0;             ///< Fixes fed in.
  std::size_t used = 0;             ///< Fixes that the day is measured by.
  std::size_t offTheGlobe = 0;      ///< Left out: see `isOnGlobe`.
  std::size_t inaccurate = 0;       ///< Left out: not accurate enough for statistics.
  std::size_t repeated = 0;         ///< Left out: not later than the fix before.
  std::size_t outliers = 0;         ///< Left out: far from the line through the neighbours.
  std::size_t beyondLimit = 0;      ///< Left out: the day holds as many fixes as it can.
  std::size_t mendedAltitudes = 0;  ///< Used, with an altitude taken from the neighbours.
  std::size_t mendedSpeeds = 0;     ///< Used, with a speed taken from the neighbours.
  std::size_t altitudeSteps = 0;    ///< Lasting jumps of the altimeter, taken out.

  friend bool operator==(const FixCounts&, const FixCounts&) = default;
};

/// One point of the day's profiles.
struct DaySample {
  platform::Date time;
  CLLocationCoordinate2D coordinate;
  double altitude = 0;        ///< metres, without spikes
  double steadyAltitude = 0;  ///< metres, also without the altimeter's jumps; verticals use it
  double speed = 0;           ///< m/s, smoothed
  double heartRate = 0;       ///< beats per minute; 0 for none
  double distance = 0;        ///< metres since the day's beginning, jitter at rest included
};

/// The figures of a segment, or of several together.
struct SegmentFigures {
  double seconds = 0;
  double movingSeconds = 0;   ///< Faster than half a metre a second.
  double distanceMeters = 0;  ///< 0 for a pause.
  double ascentMeters = 0;    ///< Climbs of at least the turnaround, see docs/day.md.
  double descentMeters = 0;   ///< As a positive number.
  double maxSpeedMetersPerSecond = 0;
  double averageSpeedMetersPerSecond = 0;  ///< Distance over moving time; 0 without any.
  std::size_t heartRates = 0;              ///< Fixes with a heart rate.
  std::optional<double> averageHeartRate;  ///< Beats per minute over these fixes.
  std::optional<double> maxHeartRate;

  friend bool operator==(const SegmentFigures&, const SegmentFigures&) = default;
};

/// A stretch of the day of one kind.
struct DaySegment {
  SegmentKind kind = SegmentKind::pause;
  int number = 0;  ///< From 1 among the segments of its kind.
  platform::Date begin, end;
  std::size_t firstSample = 0, endSample = 0;  ///< Its samples; the end is one past the last one.
  double beginAltitude = 0, endAltitude = 0;   ///< metres, without the altimeter's jumps
  double slopeDegrees = 0;                     ///< Mean slope, up is positive; 0 for a pause.
  SegmentFigures figures;

  /// Metres gained (positive) or lost between beginning and end.
  [[nodiscard]] double vertical() const { return endAltitude - beginAltitude; }
};

/// The figures of a whole day.
struct DayTotals {
  std::optional<platform::Date> begin, end;  ///< Empty when no fix is used.
  std::size_t runs = 0, lifts = 0;
  SegmentFigures all;  ///< Of all segments; pauses add their time only.
  SegmentFigures run, lift, pause, walk;
  /// Metres; empty when no fix has an altitude; then there is no ascent or descent, either.
  std::optional<double> minAltitude, maxAltitude;

  /// The figures of one kind.
  [[nodiscard]] const SegmentFigures& of(SegmentKind kind) const;
};

/// A measured day. The segments follow each other without gap or overlap.
struct Day {
  FixCounts counts;
  DayTotals totals;
  std::vector<DaySegment> segments;
  std::vector<DaySample> samples;  ///< One for each used fix, in order.
};

}  // namespace ombrix

template <>
struct ombrix::platform::RawValues<ombrix::SegmentKind> {
  static constexpr std::pair<SegmentKind, std::string_view> table[] = {
      {SegmentKind::run, "run"},
      {SegmentKind::lift, "lift"},
      {SegmentKind::pause, "pause"},
      {SegmentKind::walk, "walk"},
  };
};

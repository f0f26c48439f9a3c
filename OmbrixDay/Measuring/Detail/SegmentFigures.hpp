#pragma once

#include <span>

#include "OmbrixDay/Measuring/Day.hpp"
#include "OmbrixDay/Segments/SegmentJoiner.hpp"

namespace ombrix::detail {

/// Over a longer step speeds say nothing about the distance, nor about whether the skier moved all
/// the time.
inline constexpr double kSpeedGapSeconds = 5;

/// The altimeter's noise as the day has shown it, and the turnaround that follows from it.
class AltitudeNoise {
 public:
  /// Learns from the altitudes of a pause.
  void learn(std::span<const DaySample> pause);

  /// The smallest swing that counts as a climb or a drop, metres.
  [[nodiscard]] double turnaround() const;

 private:
  double variance_ = 0;
  bool knows_ = false;
};

/// The altitude at the boundary of two stretches. At a pause it is the mean over the rest, which
/// neither the noise's crests nor its troughs shift; from a lift into a run it is the height of the
/// smoothed crest.
/// @param after Null at the end of the day; `before` null at its beginning; never both.
double altitudeBetween(const Stretch* before, const Stretch* after,
                       std::span<const DaySample> samples);

/// Takes the figures of a stretch. `number` stays 0.
DaySegment measured(const Stretch& stretch, double beginAltitude, double endAltitude,
                    double turnaround, std::span<const DaySample> samples);

/// Adds a segment to the totals; altitudes and numbers do not change.
void addToTotals(DayTotals& totals, const DaySegment& segment);

/// Metres since the day's beginning at a time. `after` is the first sample then or later.
double distanceAt(std::span<const DaySample> samples, std::size_t after, double time);

/// The place around a time.
struct Around {
  double altitude = 0;
  CLLocationCoordinate2D place;
};

/// The means over the samples within some seconds of a time; in a gap what lies on the straight
/// line between the samples around it. The search begins at sample `near`.
Around meanAround(std::span<const DaySample> samples, std::size_t near, double time,
                  double seconds);

}  // namespace ombrix::detail

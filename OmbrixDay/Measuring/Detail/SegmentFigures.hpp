#pragma once

#include <span>

#include "OmbrixDay/Measuring/Day.hpp"
#include "OmbrixDay/Segments/SegmentJoiner.hpp"

namespace ombrix::detail {

/// Speeds say nothing of the way over a longer step, nor of whether one moved all the while.
inline constexpr double kSpeedGapSeconds = 5;

/// What the day has taught about the altimeter's noise, and with it the turnaround.
class AltitudeNoise {
 public:
  /// Learns from the altitudes of a pause.
  void learn(std::span<const DaySample> pause);

  /// The least swing that counts as a climb or a drop, metres.
  [[nodiscard]] double turnaround() const;

 private:
  double variance_ = 0;
  bool knows_ = false;
};

/// The altitude where a stretch passes into the next one. At a pause it is the mean over the rest,
/// which neither the noise's crests nor its troughs shift; from a lift into a run it is the height
/// of the smoothed crest.
/// @param after Null at the end of the day; `before` null at its beginning; never both.
double altitudeBetween(const Stretch* before, const Stretch* after,
                       std::span<const DaySample> samples);

/// Takes the figures of a stretch. `number` stays 0.
DaySegment measured(const Stretch& stretch, double beginAltitude, double endAltitude,
                    double turnaround, std::span<const DaySample> samples);

/// Adds a segment to the totals; altitudes and numbers are left alone.
void addToTotals(DayTotals& totals, const DaySegment& segment);

/// Metres since the day's beginning at a time. `after` is the first sample then or later.
double distanceAt(std::span<const DaySample> samples, std::size_t after, double time);

/// Where one was around a time.
struct Around {
  double altitude = 0;
  CLLocationCoordinate2D place;
};

/// The means over the samples within some seconds of a time; in a gap what lies on the straight
/// line between the samples around it. The search begins at sample `near`.
Around meanAround(std::span<const DaySample> samples, std::size_t near, double time,
                  double seconds);

}  // namespace ombrix::detail

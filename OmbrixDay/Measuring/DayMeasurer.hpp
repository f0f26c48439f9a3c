#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixDay/Measuring/Day.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix {

/// A heart rate at a time.
struct HeartRate {
  platform::Date time;
  double beatsPerMinute = 0;

  friend bool operator==(const HeartRate&, const HeartRate&) = default;
};

/// The changes that a fix caused.
struct DayChange {
  std::size_t samples = 0;      ///< Samples added by this call.
  std::size_t newSegments = 0;  ///< Segments at the end of `segments()` that are new and final.
  bool kindChanged = false;     ///< `current()` has changed.
};

/// Measures a day fix by fix: filters, runs and lifts, verticals. How, says docs/day.md.
///
///     DayMeasurer measurer;
///     for (const CLLocation& fix : fixes) measurer.feed(fix);
///     measurer.finish();
///     const Day day = measurer.takeDay();
///
/// The same fixes give the same day, whatever is called in between. A fix takes constant time on
/// average and about 80 bytes. One thread at a time.
class DayMeasurer {
 public:
  /// A day holds this many samples; further fixes are counted and left out.
  static constexpr std::size_t kMostSamples = 1'000'000;

  DayMeasurer();
  ~DayMeasurer();
  DayMeasurer(DayMeasurer&&) noexcept;
  DayMeasurer& operator=(DayMeasurer&&) noexcept;

  /// Takes the next fix, in the order of recording, with the heart rate at that time, if known. A
  /// fix without an altitude (see `hasAltitude`) gets that of the last one that had it; no climb is
  /// counted between fixes before the first altitude and that one.
  DayChange feed(const CLLocation& fix, std::optional<double> heartRate = std::nullopt);

  /// Ends the recording: all segments become final. Later fixes are a new recording after them.
  DayChange finish();

  /// The segments that no later fix can change. Valid until the next call.
  [[nodiscard]] std::span<const DaySegment> segments() const;

  /// The final segments followed by preliminary ones for the fixes since, as a watch shows them.
  /// Takes time in proportion to the fixes since the last final segment.
  [[nodiscard]] std::vector<DaySegment> segmentsSoFar() const;

  /// The kind of the present motion; empty until the first seconds are known.
  [[nodiscard]] std::optional<SegmentKind> current() const;

  /// The totals over `segmentsSoFar()`, and the time it takes.
  [[nodiscard]] DayTotals totals() const;

  [[nodiscard]] const FixCounts& counts() const;

  /// One for each used fix; valid until the next call.
  [[nodiscard]] std::span<const DaySample> samples() const;

  /// The whole day; afterwards the measurer is empty again.
  [[nodiscard]] Day takeDay();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Measures a whole recording. A fix without an altitude gets one on the line between the altitudes
/// before and after it.
///
/// @param fixes In the order of recording.
/// @param heartRates In order of time; a fix takes the last one at most 15 seconds older.
[[nodiscard]] Day measureDay(std::span<const CLLocation> fixes,
                             std::span<const HeartRate> heartRates = {});

}  // namespace ombrix

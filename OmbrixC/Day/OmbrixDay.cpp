#include "OmbrixC/Day/OmbrixDay.h"

#include <limits>
#include <vector>

#include "OmbrixC/Day/Detail/Tracks.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"

using namespace ombrix;

static_assert(static_cast<int>(SegmentKind::run) == OmbrixSegmentKindRun &&
              static_cast<int>(SegmentKind::lift) == OmbrixSegmentKindLift &&
              static_cast<int>(SegmentKind::pause) == OmbrixSegmentKindPause &&
              static_cast<int>(SegmentKind::walk) == OmbrixSegmentKindWalk);
static_assert(sizeof(OmbrixDaySample) == sizeof(DaySample));

struct OmbrixDay {
  Day day;
  std::vector<OmbrixDaySegment> segments;
  c::Handle handle = {};
};

namespace {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

double seconds(platform::Date date) { return platform::timeIntervalSince1970(date); }
double seconds(std::optional<platform::Date> date) { return date ? seconds(*date) : kUnknown; }

OmbrixSegmentFigures toC(const SegmentFigures& figures) {
  return {.seconds = figures.seconds,
          .movingSeconds = figures.movingSeconds,
          .distance = figures.distanceMeters,
          .ascent = figures.ascentMeters,
          .descent = figures.descentMeters,
          .maxSpeed = figures.maxSpeedMetersPerSecond,
          .averageSpeed = figures.averageSpeedMetersPerSecond,
          .heartRates = figures.heartRates,
          .averageHeartRate = figures.averageHeartRate.value_or(kUnknown),
          .maxHeartRate = figures.maxHeartRate.value_or(kUnknown)};
}

OmbrixDaySegment toC(const DaySegment& segment) {
  return {.kind = static_cast<OmbrixSegmentKind>(segment.kind),
          .number = segment.number,
          .begin = seconds(segment.begin),
          .end = seconds(segment.end),
          .firstSample = segment.firstSample,
          .endSample = segment.endSample,
          .beginAltitude = segment.beginAltitude,
          .endAltitude = segment.endAltitude,
          .slopeDegrees = segment.slopeDegrees,
          .figures = toC(segment.figures)};
}

OmbrixDay* measured(std::span<const CLLocation> fixes, std::span<const HeartRate> heartRates) {
  return c::catching(nullptr, [&] {
    Day day = measureDay(fixes, heartRates);
    std::vector<OmbrixDaySegment> segments;
    segments.reserve(day.segments.size());
    for (const DaySegment& segment : day.segments) segments.push_back(toC(segment));
    return new OmbrixDay{std::move(day), std::move(segments)};
  });
}

}  // namespace

OmbrixDay* ombrix_Day_initWithLocations_count_heartRates_count_(const OmbrixLocation* locations,
                                                                size_t count,
                                                                const OmbrixHeartRate* heartRates,
                                                                size_t heartRateCount) {
  return measured(c::from(locations, count), c::from(heartRates, heartRateCount));
}

OmbrixDay* ombrix_Day_initWithTrack_(const OmbrixTrack* track) {
  return measured(track->track.fixes, track->track.heartRates);
}

void ombrix_Day_release(OmbrixDay* self) { delete self; }

OmbrixDayTotals ombrix_Day_totals(const OmbrixDay* self) {
  const DayTotals& totals = self->day.totals;
  return {.begin = seconds(totals.begin),
          .end = seconds(totals.end),
          .fixesRead = self->day.counts.read,
          .fixesUsed = self->day.counts.used,
          .runs = totals.runs,
          .lifts = totals.lifts,
          .minAltitude = totals.minAltitude.value_or(kUnknown),
          .maxAltitude = totals.maxAltitude.value_or(kUnknown),
          .all = toC(totals.all),
          .run = toC(totals.run),
          .lift = toC(totals.lift),
          .pause = toC(totals.pause),
          .walk = toC(totals.walk)};
}

const OmbrixDaySegment* ombrix_Day_segments(const OmbrixDay* self) { return self->segments.data(); }
size_t ombrix_Day_segmentCount(const OmbrixDay* self) { return self->segments.size(); }

const OmbrixDaySample* ombrix_Day_samples(const OmbrixDay* self) {
  return reinterpret_cast<const OmbrixDaySample*>(self->day.samples.data());
}
size_t ombrix_Day_sampleCount(const OmbrixDay* self) { return self->day.samples.size(); }

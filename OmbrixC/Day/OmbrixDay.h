#ifndef OMBRIXC_DAY_OMBRIX_DAY_H
#define OMBRIXC_DAY_OMBRIX_DAY_H

#include "OmbrixC/Day/OmbrixTrack.h"

#ifdef __cplusplus
extern "C" {
#endif

/// What one does for a while.
typedef enum OmbrixSegmentKind {
  OmbrixSegmentKindRun = 0,    ///< Downhill, pauses on the slope included.
  OmbrixSegmentKindLift = 1,   ///< Carried uphill, stops of the lift included.
  OmbrixSegmentKindPause = 2,  ///< At rest, or no recording for more than ten minutes.
  OmbrixSegmentKindWalk = 3,   ///< Everything else under one's own power.
} OmbrixSegmentKind;

/// The figures of a segment, or of several together: seconds, metres, metres per second, beats per
/// minute. A missing heart rate is not a number.
typedef struct OmbrixSegmentFigures {
  double seconds;
  double movingSeconds;  ///< Faster than half a metre a second.
  double distance;       ///< 0 for a pause.
  double ascent;
  double descent;  ///< As a positive number.
  double maxSpeed;
  double averageSpeed;  ///< Distance over moving time; 0 without any.
  size_t heartRates;    ///< Fixes with a heart rate.
  double averageHeartRate;
  double maxHeartRate;
} OmbrixSegmentFigures;

/// A stretch of the day of one kind: seconds since 1970, metres, degrees.
typedef struct OmbrixDaySegment {
  OmbrixSegmentKind kind;
  int number;  ///< From 1 among the segments of its kind.
  double begin;
  double end;
  size_t firstSample;
  size_t endSample;  ///< Behind the last one.
  double beginAltitude;
  double endAltitude;
  double slopeDegrees;  ///< Up is positive; 0 for a pause.
  OmbrixSegmentFigures figures;
} OmbrixDaySegment;

/// One point of the day's profiles.
typedef struct OmbrixDaySample {
  double time;
  OmbrixCoordinate coordinate;
  double altitude;        ///< metres, without spikes
  double steadyAltitude;  ///< metres, also without the altimeter's jumps; verticals use it
  double speed;           ///< metres per second, smoothed
  double heartRate;       ///< beats per minute; 0 for none
  double distance;        ///< metres since the day's beginning, jitter at rest included
} OmbrixDaySample;

/// The figures of a whole day. Times and altitudes that no fix tells are not a number.
typedef struct OmbrixDayTotals {
  double begin;
  double end;
  size_t fixesRead;
  size_t fixesUsed;
  size_t runs;
  size_t lifts;
  double minAltitude;
  double maxAltitude;
  OmbrixSegmentFigures all;  ///< Of all segments; pauses add their time only.
  OmbrixSegmentFigures run;
  OmbrixSegmentFigures lift;
  OmbrixSegmentFigures pause;
  OmbrixSegmentFigures walk;
} OmbrixDayTotals;

/// A measured day of skiing; it never changes. The memory that its functions point to is borrowed
/// until the day is released.
typedef struct OmbrixDay OmbrixDay;

/// Measures a recording: runs and lifts, verticals, speeds. The arrays are borrowed for the call;
/// NULL is allowed where a count is 0. Fixes that are off the globe, inaccurate or repeated are
/// left out.
/// @param locations In the order of recording.
/// @param heartRates In order of time; a fix takes the last one at most 15 seconds older.
/// @return A day, which the caller owns; NULL where memory runs out.
OmbrixDay* ombrix_Day_initWithLocations_count_heartRates_count_(const OmbrixLocation* locations,
                                                                size_t count,
                                                                const OmbrixHeartRate* heartRates,
                                                                size_t heartRateCount);

/// The same for a track with its heart rates.
OmbrixDay* ombrix_Day_initWithTrack_(const OmbrixTrack* track);

/// Gives a day back; NULL is allowed.
void ombrix_Day_release(OmbrixDay* self);

/// The figures of the whole day.
OmbrixDayTotals ombrix_Day_totals(const OmbrixDay* self);

/// The segments, which follow each other without gap or overlap.
const OmbrixDaySegment* ombrix_Day_segments(const OmbrixDay* self);
/// How many segments there are.
size_t ombrix_Day_segmentCount(const OmbrixDay* self);

/// One sample for each fix that is used, in order.
const OmbrixDaySample* ombrix_Day_samples(const OmbrixDay* self);
/// How many samples there are.
size_t ombrix_Day_sampleCount(const OmbrixDay* self);

#ifdef __cplusplus
}
#endif

#endif

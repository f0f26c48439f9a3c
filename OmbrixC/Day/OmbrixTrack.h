#ifndef OMBRIXC_DAY_OMBRIX_TRACK_H
#define OMBRIXC_DAY_OMBRIX_TRACK_H

#include <stdbool.h>

#include "OmbrixC/Location/OmbrixLocation.h"
#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The files that tracks are kept in.
typedef enum OmbrixTrackFormat {
  OmbrixTrackFormatCSV = 0,
  OmbrixTrackFormatGPX = 1,
  OmbrixTrackFormatTCX = 2,
  OmbrixTrackFormatGeoJSON = 3,
  OmbrixTrackFormatFIT = 4,  ///< Read only.
} OmbrixTrackFormat;

/// A heart rate at a time: seconds since 1970, beats per minute.
typedef struct OmbrixHeartRate {
  double time;
  double beatsPerMinute;
} OmbrixHeartRate;

/// What made a device end a lap.
typedef enum OmbrixLapTrigger {
  OmbrixLapTriggerManual = 0,
  OmbrixLapTriggerDistance = 1,
  OmbrixLapTriggerLocation = 2,
  OmbrixLapTriggerTime = 3,
  OmbrixLapTriggerHeartRate = 4,
} OmbrixLapTrigger;

/// A part of a recording for which its device keeps totals; negative ones are unknown.
typedef struct OmbrixLap {
  double begin;    ///< Seconds since 1970.
  double seconds;  ///< Without the time that the device stood still.
  double distanceMeters;
  double kilocalories;
  double averageSpeed;  ///< Metres a second.
  double maxSpeed;
  double averageHeartRate;  ///< Beats a minute.
  double maxHeartRate;
  double averageCadence;  ///< Revolutions, or steps of one foot, a minute.
  double maxCadence;
  double averagePower;  ///< Watts.
  double maxPower;
  bool isRest;
  OmbrixLapTrigger trigger;
  const char* notes;  ///< Empty for none.
} OmbrixLap;

/// A recording, whatever file it came from; it never changes. The memory that its functions point
/// to is borrowed until the track is released.
typedef struct OmbrixTrack OmbrixTrack;

/// Reads the file of a file URL, in the format that its ending names, otherwise in the one that its
/// beginning looks like. A damaged file gives the part that can be read, and `fault` says what is
/// wrong. NULL and an error, which names the file or the text, for a text that is not a file URL
/// and for a file that cannot be opened, is larger than 1 GiB, is not a track, or does not fit into
/// memory. The caller owns the track.
OmbrixTrack* ombrix_Track_initWithUrl_error_(const char* url, OmbrixError** error);

/// The same for bytes of a format, borrowed for the call. A format out of range is an error.
OmbrixTrack* ombrix_Track_initWithData_format_error_(const uint8_t* bytes, size_t length,
                                                     OmbrixTrackFormat format, OmbrixError** error);

/// A track of fixes, which are copied, with a name that files may store (NULL for none). The caller
/// owns the track; NULL where memory runs out.
OmbrixTrack* ombrix_Track_initWithLocations_count_name_(const OmbrixLocation* locations,
                                                        size_t count, const char* name);

/// Gives a track back; NULL is allowed.
void ombrix_Track_release(OmbrixTrack* self);

/// The name that the file gives the track; empty for none.
const char* ombrix_Track_name(const OmbrixTrack* self);

/// The fixes in the order of the file; unknown figures are -1, altitudes 0.
const OmbrixLocation* ombrix_Track_locations(const OmbrixTrack* self);
/// How many fixes there are.
size_t ombrix_Track_locationCount(const OmbrixTrack* self);

/// The heart rates in the order of the file.
const OmbrixHeartRate* ombrix_Track_heartRates(const OmbrixTrack* self);
/// How many heart rates there are.
size_t ombrix_Track_heartRateCount(const OmbrixTrack* self);

/// The time when each lap began, seconds since 1970.
const double* ombrix_Track_laps(const OmbrixTrack* self);
/// What the device says of each lap.
const OmbrixLap* ombrix_Track_lapFigures(const OmbrixTrack* self);
/// How many laps there are, for both.
size_t ombrix_Track_lapCount(const OmbrixTrack* self);

/// How many points of the file were left out because they have no place or no time.
size_t ombrix_Track_skipped(const OmbrixTrack* self);

/// Why the file could not be read whole; empty when it could.
const char* ombrix_Track_fault(const OmbrixTrack* self);

/// The bytes of a file of a format with the fixes that it can hold; the caller owns them. No bytes,
/// and an error, for FIT, which can only be read, and for a format out of range.
OmbrixData ombrix_Track_dataInFormat_error_(const OmbrixTrack* self, OmbrixTrackFormat format,
                                            OmbrixError** error);

#ifdef __cplusplus
}
#endif

#endif

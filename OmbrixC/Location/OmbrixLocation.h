#ifndef OMBRIXC_OMBRIX_LOCATION_H
#define OMBRIXC_OMBRIX_LOCATION_H

#include <stdbool.h>

#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A point on the WGS-84 ellipsoid, degrees.
typedef struct OmbrixCoordinate {
  double latitude;
  double longitude;
} OmbrixCoordinate;

/// One recorded fix: metres, degrees, metres per second, and seconds since 1970. A negative
/// accuracy, course or speed is invalid.
typedef struct OmbrixLocation {
  OmbrixCoordinate coordinate;
  double altitude;
  double horizontalAccuracy;
  double verticalAccuracy;
  double course;
  double courseAccuracy;
  double speed;
  double speedAccuracy;
  double timestamp;
} OmbrixLocation;

/// The smallest angle between two directions in degrees, 0 to 180.
double ombrix_CLLocationDegreesDifference(double a, double b);

/// Metres along the WGS-84 geodesic; not a number off the globe.
double ombrix_CLLocationCoordinateDistance(OmbrixCoordinate first, OmbrixCoordinate second);

/// Initial great-circle bearing from the first point to the second, degrees.
double ombrix_CLLocationCoordinateCourse(OmbrixCoordinate first, OmbrixCoordinate second);

// Functions on fixes. Receivers and other fixes must not be NULL, except `other` in the two
// equalities, where NULL gives false. Pure, on any thread. Equalities and hash stop the program on
// a value that is not finite or too large for the microdegree grid.

/// Whether two fixes are equal: time, place to a millionth of a degree, speed to a centimetre a
/// second, course and accuracies to a tenth. Altitudes do not count.
bool ombrix_CLLocation_isEqual_(const OmbrixLocation* self, const OmbrixLocation* other);
/// The same.
bool ombrix_CLLocation_isEqualToLocation_(const OmbrixLocation* self, const OmbrixLocation* other);
/// A number that equal fixes share.
size_t ombrix_CLLocation_hash(const OmbrixLocation* self);

/// The largest horizontal accuracy that counts in statistics, metres; process-wide, 60 at start.
double ombrix_CLLocation_OCKLocationMinHorizontalAccuracyForStats(void);
/// Sets the largest horizontal accuracy that counts in statistics, metres; not stored.
void ombrix_CLLocation_setOCKLocationMinHorizontalAccuracyForStats_(double metres);
/// The largest vertical accuracy that counts in statistics, metres; process-wide, 60 at start.
double ombrix_CLLocation_OCKLocationMinVerticalAccuracyForStats(void);
/// Sets it, metres; not stored.
void ombrix_CLLocation_setOCKLocationMinVerticalAccuracyForStats_(double metres);
/// Whether a fix counts in statistics: both accuracies within the limits, and a valid speed.
bool ombrix_CLLocation_isAccurateForStats(const OmbrixLocation* self);

/// Degrees of latitude in a metre; `lon` is taken as a latitude in degrees.
double ombrix_CLLocation_metersToDegreesForLatAtLon_(double lon);
/// Degrees of longitude in a metre at a latitude in degrees; grows without bound at the poles.
double ombrix_CLLocation_metersToDegreesForLonAtLat_(double lat);

/// Metres along the WGS-84 geodesic between two fixes; altitudes are ignored.
double ombrix_CLLocation_distanceFromLocation_(const OmbrixLocation* self,
                                               const OmbrixLocation* other);
/// Initial great-circle bearing from this fix to another one, degrees from north.
double ombrix_CLLocation_courseToLocation_(const OmbrixLocation* self, const OmbrixLocation* other);
/// Initial great-circle bearing from another fix to this one, degrees from north.
double ombrix_CLLocation_courseFromLocation_(const OmbrixLocation* self,
                                             const OmbrixLocation* other);

/// This fix moved by so many metres in a direction in degrees.
OmbrixLocation ombrix_CLLocation_moveWithCourse_distance_(const OmbrixLocation* self, double course,
                                                          double distance);
/// The same at a speed in metres per second for so many seconds.
OmbrixLocation ombrix_CLLocation_moveWithCourse_speed_duration_(const OmbrixLocation* self,
                                                                double course, double speed,
                                                                double duration);

/// The fix's speed taken as the horizontal component, with a vertical one added; metres per second.
double ombrix_CLLocation_speedByAddingVerticalComponent_(const OmbrixLocation* self,
                                                         double vertical);
/// The fix's speed taken as the vertical component, with a horizontal one added; metres per
/// second.
double ombrix_CLLocation_speedByAddingHorizontalComponent_(const OmbrixLocation* self,
                                                           double horizontal);
/// Metres per second over ground since another fix; never negative, 0 at equal times.
double ombrix_CLLocation_horizontalSpeedComingFromLocation_(const OmbrixLocation* self,
                                                            const OmbrixLocation* other);
/// Metres per second of altitude since another fix, without its sign; 0 at equal times.
double ombrix_CLLocation_verticalSpeedComingFromLocation_(const OmbrixLocation* self,
                                                          const OmbrixLocation* other);
/// Both components since another fix as one speed, metres per second.
double ombrix_CLLocation_speedComingFromLocation_(const OmbrixLocation* self,
                                                  const OmbrixLocation* other);
/// This fix with another speed, metres per second.
OmbrixLocation ombrix_CLLocation_newWithSpeed_(const OmbrixLocation* self, double speed);
/// The length of a velocity with these components, metres per second.
double ombrix_CLLocation_speedWithHorizontalComponent_andVerticalComponent_(double horizontal,
                                                                            double vertical);

#ifdef __cplusplus
}
#endif

#endif

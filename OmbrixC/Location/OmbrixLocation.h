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

/// Functions on fixes. Receivers and other fixes are never NULL, but for `other` in the two
/// equalities, where NULL gives false. Pure, on any thread. Equalities and hash stop the program on
/// a value that is not finite or too large for the microdegree grid.
bool ombrix_CLLocation_isEqual_(const OmbrixLocation* self, const OmbrixLocation* other);
bool ombrix_CLLocation_isEqualToLocation_(const OmbrixLocation* self, const OmbrixLocation* other);
size_t ombrix_CLLocation_hash(const OmbrixLocation* self);

/// Accuracies that count in statistics, metres; process-wide, 60 at start.
double ombrix_CLLocation_OCKLocationMinHorizontalAccuracyForStats(void);
void ombrix_CLLocation_setOCKLocationMinHorizontalAccuracyForStats_(double metres);
double ombrix_CLLocation_OCKLocationMinVerticalAccuracyForStats(void);
void ombrix_CLLocation_setOCKLocationMinVerticalAccuracyForStats_(double metres);
bool ombrix_CLLocation_isAccurateForStats(const OmbrixLocation* self);

/// Degrees of latitude, and of longitude, per metre. Both arguments are latitudes in degrees.
double ombrix_CLLocation_metersToDegreesForLatAtLon_(double lon);
double ombrix_CLLocation_metersToDegreesForLonAtLat_(double lat);

double ombrix_CLLocation_distanceFromLocation_(const OmbrixLocation* self,
                                               const OmbrixLocation* other);
double ombrix_CLLocation_courseToLocation_(const OmbrixLocation* self, const OmbrixLocation* other);
double ombrix_CLLocation_courseFromLocation_(const OmbrixLocation* self,
                                             const OmbrixLocation* other);

/// Degrees, metres, metres per second, seconds.
OmbrixLocation ombrix_CLLocation_moveWithCourse_distance_(const OmbrixLocation* self, double course,
                                                          double distance);
OmbrixLocation ombrix_CLLocation_moveWithCourse_speed_duration_(const OmbrixLocation* self,
                                                                double course, double speed,
                                                                double duration);

/// Speeds in metres per second.
double ombrix_CLLocation_speedByAddingVerticalComponent_(const OmbrixLocation* self,
                                                         double vertical);
double ombrix_CLLocation_speedByAddingHorizontalComponent_(const OmbrixLocation* self,
                                                           double horizontal);
double ombrix_CLLocation_horizontalSpeedComingFromLocation_(const OmbrixLocation* self,
                                                            const OmbrixLocation* other);
double ombrix_CLLocation_verticalSpeedComingFromLocation_(const OmbrixLocation* self,
                                                          const OmbrixLocation* other);
double ombrix_CLLocation_speedComingFromLocation_(const OmbrixLocation* self,
                                                  const OmbrixLocation* other);
OmbrixLocation ombrix_CLLocation_newWithSpeed_(const OmbrixLocation* self, double speed);
double ombrix_CLLocation_speedWithHorizontalComponent_andVerticalComponent_(double horizontal,
                                                                            double vertical);

#ifdef __cplusplus
}
#endif

#endif

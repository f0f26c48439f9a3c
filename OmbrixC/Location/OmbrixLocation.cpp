#include "OmbrixC/Location/OmbrixLocation.h"

#include "OmbrixC/Location/Detail/Location.hpp"

using ombrix::CLLocation;
using ombrix::c::from;
using ombrix::c::toC;

double ombrix_CLLocationDegreesDifference(double a, double b) {
  return ombrix::CLLocationDegreesDifference(a, b);
}

double ombrix_CLLocationCoordinateDistance(OmbrixCoordinate first, OmbrixCoordinate second) {
  return ombrix::CLLocationCoordinateDistance(from(first), from(second));
}

double ombrix_CLLocationCoordinateCourse(OmbrixCoordinate first, OmbrixCoordinate second) {
  return ombrix::CLLocationCoordinateCourse(from(first), from(second));
}

bool ombrix_CLLocation_isEqual_(const OmbrixLocation* self, const OmbrixLocation* other) {
  return other != nullptr && from(*self).isEqual(from(*other));
}

bool ombrix_CLLocation_isEqualToLocation_(const OmbrixLocation* self, const OmbrixLocation* other) {
  return other != nullptr && from(*self).isEqualToLocation(from(*other));
}

size_t ombrix_CLLocation_hash(const OmbrixLocation* self) { return from(*self).hash(); }

double ombrix_CLLocation_OCKLocationMinHorizontalAccuracyForStats(void) {
  return CLLocation::MinHorizontalAccuracyForStats();
}

void ombrix_CLLocation_setOCKLocationMinHorizontalAccuracyForStats_(double metres) {
  CLLocation::setMinHorizontalAccuracyForStats(metres);
}

double ombrix_CLLocation_OCKLocationMinVerticalAccuracyForStats(void) {
  return CLLocation::MinVerticalAccuracyForStats();
}

void ombrix_CLLocation_setOCKLocationMinVerticalAccuracyForStats_(double metres) {
  CLLocation::setMinVerticalAccuracyForStats(metres);
}

bool ombrix_CLLocation_isAccurateForStats(const OmbrixLocation* self) {
  return from(*self).isAccurateForStats();
}

double ombrix_CLLocation_metersToDegreesForLatAtLon_(double lon) {
  return CLLocation::metersToDegreesForLatAtLon(lon);
}

double ombrix_CLLocation_metersToDegreesForLonAtLat_(double lat) {
  return CLLocation::metersToDegreesForLonAtLat(lat);
}

double ombrix_CLLocation_distanceFromLocation_(const OmbrixLocation* self,
                                               const OmbrixLocation* other) {
  return from(*self).distanceFrom(from(*other));
}

double ombrix_CLLocation_courseToLocation_(const OmbrixLocation* self,
                                           const OmbrixLocation* other) {
  return from(*self).courseTo(from(*other));
}

double ombrix_CLLocation_courseFromLocation_(const OmbrixLocation* self,
                                             const OmbrixLocation* other) {
  return from(*self).courseFrom(from(*other));
}

OmbrixLocation ombrix_CLLocation_moveWithCourse_distance_(const OmbrixLocation* self, double course,
                                                          double distance) {
  return toC(from(*self).move(course, distance));
}

OmbrixLocation ombrix_CLLocation_moveWithCourse_speed_duration_(const OmbrixLocation* self,
                                                                double course, double speed,
                                                                double duration) {
  return toC(from(*self).move(course, speed, duration));
}

double ombrix_CLLocation_speedByAddingVerticalComponent_(const OmbrixLocation* self,
                                                         double vertical) {
  return from(*self).speedByAddingVertical(vertical);
}

double ombrix_CLLocation_speedByAddingHorizontalComponent_(const OmbrixLocation* self,
                                                           double horizontal) {
  return from(*self).speedByAddingHorizontal(horizontal);
}

double ombrix_CLLocation_horizontalSpeedComingFromLocation_(const OmbrixLocation* self,
                                                            const OmbrixLocation* other) {
  return from(*self).horizontalSpeedFrom(from(*other));
}

double ombrix_CLLocation_verticalSpeedComingFromLocation_(const OmbrixLocation* self,
                                                          const OmbrixLocation* other) {
  return from(*self).verticalSpeedFrom(from(*other));
}

double ombrix_CLLocation_speedComingFromLocation_(const OmbrixLocation* self,
                                                  const OmbrixLocation* other) {
  return from(*self).speedFrom(from(*other));
}

OmbrixLocation ombrix_CLLocation_newWithSpeed_(const OmbrixLocation* self, double speed) {
  return toC(from(*self).replacingSpeed(speed));
}

double ombrix_CLLocation_speedWithHorizontalComponent_andVerticalComponent_(double horizontal,
                                                                            double vertical) {
  return CLLocation::speedOfComponents(horizontal, vertical);
}

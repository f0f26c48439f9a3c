#pragma once

#include <cstddef>
#include <functional>

#include "OmbrixPlatform/Coding/CodingFields.hpp"
#include "OmbrixPlatform/Values/Hasher.hpp"

namespace ombrix {

/// A point on the WGS-84 ellipsoid, in degrees. A plain value; every operation is pure.
///
/// Equality and hash use the microdegree grid: each component times 1e6, truncated towards zero.
/// They stop the program for a component that is not finite or whose product overflows 64 bits.
struct CLLocationCoordinate2D {
  double latitude = 0.0;
  double longitude = 0.0;

  /// Whether both are in one cell of the microdegree grid. Stops the program if one has no cell.
  friend bool operator==(const CLLocationCoordinate2D& a, const CLLocationCoordinate2D& b);

  /// Hashes the latitude's cell, then the longitude's. Stops the program on a value without a cell.
  void hashInto(platform::Hasher& hasher) const;
  [[nodiscard]] std::size_t hashValue() const;

  /// The point `distance` metres away on the initial bearing `course` (degrees), on a sphere of
  /// 6371.01 km (spherical law of cosines in colatitudes).
  ///
  /// The longitude is not wrapped into [-180, 180], never changes by more than 90 degrees, and is
  /// not a number when the result is a pole.
  [[nodiscard]] CLLocationCoordinate2D move(double course, double distance) const;

  /// The same with distance = `speed` (m/s) x `duration` (s).
  [[nodiscard]] CLLocationCoordinate2D move(double course, double speed, double duration) const;

  /// Metres along the WGS-84 geodesic; not a number for points with impossible latitudes.
  [[nodiscard]] double distanceTo(const CLLocationCoordinate2D& other) const;

  /// Initial great-circle bearing from here to the other point, degrees from 0 up to 360.
  [[nodiscard]] double courseTo(const CLLocationCoordinate2D& other) const;

  /// Initial bearing from the other point to this one.
  [[nodiscard]] double courseFrom(const CLLocationCoordinate2D& other) const;

  /// The coded form, in any format.
  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("lat", &CLLocationCoordinate2D::latitude),
                             platform::field("lon", &CLLocationCoordinate2D::longitude));
};

/// The smallest angle between two directions in degrees, 0 to 180.
double CLLocationDegreesDifference(double a, double b);

/// Metres along the WGS-84 geodesic between two points.
double CLLocationCoordinateDistance(CLLocationCoordinate2D first, CLLocationCoordinate2D second);

/// Initial great-circle bearing from the first point to the second, degrees.
double CLLocationCoordinateCourse(CLLocationCoordinate2D first, CLLocationCoordinate2D second);

}  // namespace ombrix

template <>
struct std::hash<ombrix::CLLocationCoordinate2D> {
  std::size_t operator()(const ombrix::CLLocationCoordinate2D& value) const {
    return value.hashValue();
  }
};

#include "OmbrixCore/Location/CLLocationCoordinate2D.hpp"

#include <cmath>
#include <numbers>

#include "OmbrixCore/Location/Detail/GridCell.hpp"
#include "OmbrixPlatform/Location/Geodesic.hpp"

namespace ombrix {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kHalfPi = kPi / 2;
constexpr double kMicrodegreesPerDegree = 1e6;
constexpr double kEarthRadiusKilometres = 6371.01;

// Multiplies first and divides second, so that every platform computes the same bits.
double radians(double degrees) { return degrees * kPi / 180; }
double degrees(double radians) { return radians * 180 / kPi; }

std::int64_t cell(double degrees) { return detail::gridCell(degrees, kMicrodegreesPerDegree); }

}  // namespace

bool operator==(const CLLocationCoordinate2D& a, const CLLocationCoordinate2D& b) {
  // Kept: the grid is cut, not rounded, so the cell around 0 is twice as wide as the others and
  // neighbours a hair apart may differ. Stored tracks are matched by these cells.
  return cell(a.latitude) == cell(b.latitude) && cell(a.longitude) == cell(b.longitude);
}

void CLLocationCoordinate2D::hashInto(platform::Hasher& hasher) const {
  hasher.combine(cell(latitude));
  hasher.combine(cell(longitude));
}

std::size_t CLLocationCoordinate2D::hashValue() const {
  platform::Hasher hasher;
  hashInto(hasher);
  return hasher.finalize();
}

CLLocationCoordinate2D CLLocationCoordinate2D::move(double course, double distance) const {
  const double angularDistance = (distance / 1000) / kEarthRadiusKilometres;
  const double colatitude = kHalfPi - radians(latitude);
  const double bearing = radians(course);
  const double reached =
      std::acos(std::cos(angularDistance) * std::cos(colatitude) +
                std::cos(bearing) * std::sin(angularDistance) * std::sin(colatitude));
  // Kept: the arc sine never turns by more than 90 degrees, the longitude is not wrapped, and
  // reaching a pole gives not-a-number. Callers move by metres and rely on the plain sum.
  const double turn = std::asin(std::sin(bearing) * std::sin(angularDistance) / std::sin(reached));
  return {.latitude = degrees(kHalfPi - reached), .longitude = degrees(radians(longitude) + turn)};
}

CLLocationCoordinate2D CLLocationCoordinate2D::move(double course, double speed,
                                                    double duration) const {
  return move(course, speed * duration);
}

double CLLocationCoordinate2D::distanceTo(const CLLocationCoordinate2D& other) const {
  return platform::geodesicDistance({latitude, longitude}, {other.latitude, other.longitude});
}

double CLLocationCoordinate2D::courseTo(const CLLocationCoordinate2D& other) const {
  const double fromLatitude = radians(latitude);
  const double toLatitude = radians(other.latitude);
  const double turn = radians(other.longitude) - radians(longitude);
  const double y = std::sin(turn) * std::cos(toLatitude);
  const double x = std::cos(fromLatitude) * std::sin(toLatitude) -
                   std::sin(fromLatitude) * std::cos(toLatitude) * std::cos(turn);
  const double bearing = std::fmod(degrees(std::atan2(y, x)), 360);
  // Kept: a tiny negative bearing rounds to exactly 360.0. Another formula would move the last bit
  // of ordinary bearings.
  return bearing < 0 ? bearing + 360 : bearing;
}

double CLLocationCoordinate2D::courseFrom(const CLLocationCoordinate2D& other) const {
  return other.courseTo(*this);
}

double CLLocationDegreesDifference(double a, double b) {
  return 180 - std::fabs(std::fmod(std::fabs(a - b), 360) - 180);
}

double CLLocationCoordinateDistance(CLLocationCoordinate2D first, CLLocationCoordinate2D second) {
  return first.distanceTo(second);
}

double CLLocationCoordinateCourse(CLLocationCoordinate2D first, CLLocationCoordinate2D second) {
  return first.courseTo(second);
}

}  // namespace ombrix

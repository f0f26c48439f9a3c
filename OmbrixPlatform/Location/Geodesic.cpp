#include "OmbrixPlatform/Location/Geodesic.hpp"

#include <GeographicLib/Geodesic.hpp>
#include <cmath>
#include <limits>
#include <numbers>

namespace ombrix::platform {
namespace {

// WGS-84.
constexpr double kEquatorialRadiusMetres = 6'378'137.0;
constexpr double kFlattening = 1 / 298.257223563;
constexpr double kAxisRatio = 1 - kFlattening;
constexpr double kEccentricitySquared = kFlattening * (2 - kFlattening);

constexpr double kRadiansPerDegree = std::numbers::pi / 180;

// The error of the fast path grows with the fifth power of the distance: 0.2 nm here.
constexpr double kFastLimitMetres = 20'000.0;
constexpr double kFastLimitSquared =
    (kFastLimitMetres / kEquatorialRadiusMetres) * (kFastLimitMetres / kEquatorialRadiusMetres);
// Points within the limit never differ by more in latitude; the short series below are valid.
constexpr double kFastLimitLatitudeDegrees = 0.25;

double referenceDistance(GeodesicPoint from, GeodesicPoint to) {
  if (!std::isfinite(from.latitude + from.longitude + to.latitude + to.longitude)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  double metres = 0.0;
  GeographicLib::Geodesic::WGS84().Inverse(from.latitude, from.longitude, to.latitude, to.longitude,
                                           metres);
  return metres;
}

/// `to` - `from` in degrees, within a half turn. Exact across the antimeridian, where the plain
/// difference would be off by up to 3 nm.
double longitudeDifference(double from, double to) noexcept {
  const double difference = to - from;
  if (std::fabs(difference) <= 180) return difference;
  const double start = std::remainder(from, 360.0);
  const double end = std::remainder(to, 360.0);
  if (std::fabs(end - start) <= 180) return end - start;
  return (end - std::copysign(180.0, end)) - (start - std::copysign(180.0, start));
}

/// Sine of half an angle in degrees; by a series where that is exact to the last bit.
double sineOfHalf(double degrees) noexcept {
  constexpr double kSeriesLimitRadians = 0.05;
  const double x = degrees * (kRadiansPerDegree / 2);
  if (!(std::fabs(x) < kSeriesLimitRadians)) return std::sin(x);
  const double x2 = x * x;
  return x + x * x2 * (-1.0 / 6 + x2 * (1.0 / 120 - x2 / 5040));
}

}  // namespace

namespace detail {

GeodesicSite::GeodesicSite(GeodesicPoint where) noexcept : point(where) {
  const double magnitude = std::fabs(where.latitude);
  // Measured from the nearer of equator and pole, so that points near a pole lose no digits.
  const bool nearPole = magnitude > 45;
  const double angle = (nearPole ? 90 - magnitude : magnitude) * kRadiansPerDegree;
  const double angleSine = std::sin(angle);
  const double angleCosine = std::cos(angle);
  // Latitudes beyond the poles are invalid: not-a-number passes through every later step.
  const double cosine = magnitude > 90 ? std::numeric_limits<double>::quiet_NaN()
                        : nearPole     ? angleSine
                                       : angleCosine;
  const double sine = std::copysign(nearPole ? angleCosine : angleSine, where.latitude);
  rootSquared = 1 - kEccentricitySquared * sine * sine;
  inverseRoot = 1 / std::sqrt(rootSquared);
  reducedSine = kAxisRatio * sine * inverseRoot;
  reducedCosine = cosine * inverseRoot;
}

// With u the reduced latitude, a point lies at (cos u cos l, cos u sin l, (b/a) sin u) equatorial
// radii from the centre. Differences of cosines and sines of u are taken through
// t = tan((u2 - u1) / 2), which follows from the latitudes' difference without cancellation:
//   sin(u2 - u1) = (b/a) sin(f2 - f1) / (W1 W2),
//   cos u2 - cos u1 = -t (sin u1 + sin u2),  sin u2 - sin u1 = t (cos u1 + cos u2).
// An arc of curvature k over a chord c is c (1 + (k c)^2 / 24 + 3 (k c)^4 / 640 + ...) long, and by
// Euler's formula k c = W s^2 / c, where s is the chord on the sphere of reduced latitudes. What is
// left out (the change of curvature along the arc) is of the order e^2 c^5.
double geodesicDistance(const GeodesicSite& from, const GeodesicSite& to) {
  const double latitudeStep = to.point.latitude - from.point.latitude;
  if (!(std::fabs(latitudeStep) < kFastLimitLatitudeDegrees)) {
    return referenceDistance(from.point, to.point);
  }
  const double step = latitudeStep * kRadiansPerDegree;
  const double step2 = step * step;
  const double stepSine = step + step * step2 * (step2 / 120 - 1.0 / 6);
  const double q = kAxisRatio * stepSine * (from.inverseRoot * to.inverseRoot);
  const double q2 = q * q;
  const double t = q * (0.5 + q2 * (0.125 + q2 * 0.0625));

  const double turnSine = sineOfHalf(longitudeDifference(from.point.longitude, to.point.longitude));
  const double along = 4 * (from.reducedCosine * to.reducedCosine) * (turnSine * turnSine);
  const double outward = t * (from.reducedSine + to.reducedSine);
  const double upward = t * (from.reducedCosine + to.reducedCosine);
  const double level2 = along + outward * outward;
  const double sphere2 = level2 + upward * upward;
  const double chord2 = level2 + kAxisRatio * kAxisRatio * (upward * upward);
  if (!(chord2 <= kFastLimitSquared)) return referenceDistance(from.point, to.point);
  if (chord2 == 0) return 0.0;

  const double bend = 0.5 * (from.rootSquared + to.rootSquared) * (sphere2 * sphere2 / chord2);
  return kEquatorialRadiusMetres * std::sqrt(chord2) * (1 + bend * (1.0 / 24 + bend * (3.0 / 640)));
}

}  // namespace detail

double geodesicDistance(GeodesicPoint from, GeodesicPoint to) {
  return detail::geodesicDistance(detail::GeodesicSite(from), detail::GeodesicSite(to));
}

}  // namespace ombrix::platform

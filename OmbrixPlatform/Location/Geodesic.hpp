#pragma once

namespace ombrix::platform {

/// A point on the WGS-84 ellipsoid: degrees north, -90 to 90, and degrees east, any turn.
struct GeodesicPoint {
  double latitude = 0.0;
  double longitude = 0.0;
};

namespace detail {

/// A point with what a distance needs of it: the trigonometry of its latitude.
struct GeodesicSite {
  explicit GeodesicSite(GeodesicPoint where) noexcept;

  GeodesicPoint point;
  double rootSquared;    ///< W^2 = 1 - e^2 sin^2(latitude)
  double inverseRoot;    ///< 1 / W
  double reducedSine;    ///< sine of the reduced latitude
  double reducedCosine;  ///< cosine of the reduced latitude
};

double geodesicDistance(const GeodesicSite& from, const GeodesicSite& to);

}  // namespace detail

/// Metres along the shortest line on the WGS-84 ellipsoid between two points; altitude plays no
/// part.
///
/// Points up to 20 km apart take a fast path that is within 0.2 nm of the exact length, and 2e-15
/// of it for points up to a kilometre apart; others are left to GeographicLib (within 15 nm of
/// exact). The result does not depend on the order of the points and is 0 for equal ones, whatever
/// turn their longitudes are counted in. It is not a number when a latitude lies outside
/// [-90, 90] or a component is not finite.
///
/// Any thread. Source of the formula: the straight chord between the two points in reduced
/// latitudes, lengthened to the arc by the curvature of the ellipsoid along it (Euler's formula).
double geodesicDistance(GeodesicPoint from, GeodesicPoint to);

/// The same distance for point after point of a track, at two thirds of the cost. One thread at a
/// time.
class GeodesicWalk {
 public:
  explicit GeodesicWalk(GeodesicPoint start) noexcept : reached_(start) {}

  /// Metres from the point reached so far to `next`, which is the point reached from now on.
  double to(GeodesicPoint next) {
    const detail::GeodesicSite site(next);
    const double metres = detail::geodesicDistance(reached_, site);
    reached_ = site;
    return metres;
  }

 private:
  detail::GeodesicSite reached_;
};

}  // namespace ombrix::platform

#pragma once

namespace ombrix::platform {

/// A point on the WGS-84 ellipsoid: degrees north, -90 to 90, and degrees east, in any turn.
struct GeodesicPoint {
  double latitude = 0.0;
  double longitude = 0.0;
};

namespace detail {

/// A point with the values that a distance needs: the trigonometry of its latitude.
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

/// The length in metres of the shortest line on the WGS-84 ellipsoid between two points; ignores
/// altitude.
///
/// For points up to 20 km apart, a fast path is within 0.2 nm of the exact length, and within 2e-15
/// of it for points up to a kilometre apart; GeographicLib computes all others (within 15 nm of
/// exact). The result does not depend on the order of the points and is 0 for equal ones, whatever
/// turn their longitudes are in. It is not a number when a latitude is outside [-90, 90] or a
/// component is not finite.
///
/// Any thread. Source of the formula: the straight chord between the two points in reduced
/// latitudes, lengthened to the arc by the curvature of the ellipsoid along it (Euler's formula).
double geodesicDistance(GeodesicPoint from, GeodesicPoint to);

/// Computes the same distances along the points of a track, at two thirds of the cost. One thread
/// at a time.
class GeodesicWalk {
 public:
  explicit GeodesicWalk(GeodesicPoint start) noexcept : reached_(start) {}

  /// Metres from the current point to `next`, which becomes the current point.
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

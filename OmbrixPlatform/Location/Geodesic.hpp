#pragma once

namespace ombrix::platform {

/// A point on the WGS-84 ellipsoid: degrees north, -90 to 90, and degrees east, any turn.
struct GeodesicPoint {
  double latitude = 0.0;
  double longitude = 0.0;
};

/// Metres along the shortest line on the WGS-84 ellipsoid between two points; altitude plays no
/// part.
double geodesicDistance(GeodesicPoint from, GeodesicPoint to);

/// The same for point after point of a track.
class GeodesicWalk {
 public:
  explicit GeodesicWalk(GeodesicPoint start) : at_(start) {}

  /// Metres from the point reached so far to `next`, which is the point reached from now on.
  double to(GeodesicPoint next) {
    const double metres = geodesicDistance(at_, next);
    at_ = next;
    return metres;
  }

 private:
  GeodesicPoint at_;
};

}  // namespace ombrix::platform

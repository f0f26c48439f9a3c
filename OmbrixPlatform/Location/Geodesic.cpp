#include "OmbrixPlatform/Location/Geodesic.hpp"

#include <GeographicLib/Geodesic.hpp>

namespace ombrix::platform {

double geodesicDistance(GeodesicPoint from, GeodesicPoint to) {
  double metres = 0.0;
  GeographicLib::Geodesic::WGS84().Inverse(from.latitude, from.longitude, to.latitude, to.longitude,
                                           metres);
  return metres;
}

}  // namespace ombrix::platform

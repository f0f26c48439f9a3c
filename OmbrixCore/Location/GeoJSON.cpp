#include "OmbrixCore/Location/GeoJSON.hpp"

namespace ombrix {
namespace {

void hashAll(platform::Hasher& hasher, const std::vector<CLLocationCoordinate2D>& positions) {
  hasher.combine(positions.size());
  for (const CLLocationCoordinate2D& position : positions) position.hashInto(hasher);
}

}  // namespace

void GeoJSONPoint::hashInto(platform::Hasher& hasher) const {
  hasher.combine(type);
  coordinates.hashInto(hasher);
}

void GeoJSONLineString::hashInto(platform::Hasher& hasher) const {
  hasher.combine(type);
  hashAll(hasher, coordinates);
}

void GeoJSONPolygon::hashInto(platform::Hasher& hasher) const {
  hasher.combine(type);
  hasher.combine(coordinates.size());
  for (const auto& ring : coordinates) hashAll(hasher, ring);
}

void GeoJSONGeometryValue::hashInto(platform::Hasher& hasher) const {
  hasher.combine(held_.index());
  visit([&hasher](const auto& held) { held.hashInto(hasher); });
}

}  // namespace ombrix

#include "OmbrixC/Location/OmbrixGeoJSON.h"

#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixCore/Location/GeoJSON.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"

using namespace ombrix;

struct OmbrixGeoJSON {
  GeoJSONGeometry geometry;
  c::Handle handle = {};
};

namespace {

using Kind = GeoJSONGeometryValue::Case;
using Line = std::span<const CLLocationCoordinate2D>;

static_assert(static_cast<int>(Kind::polygon) == OmbrixGeoJSONKindPolygon &&
              static_cast<int>(Kind::lineString) == OmbrixGeoJSONKindLineString &&
              static_cast<int>(Kind::point) == OmbrixGeoJSONKindPoint);
// Coordinates lie in memory as the C ones do.
static_assert(sizeof(CLLocationCoordinate2D) == sizeof(OmbrixCoordinate) &&
              std::is_standard_layout_v<CLLocationCoordinate2D>);

std::size_t partsOf(const GeoJSONGeometry& geometry) {
  const GeoJSONPolygon* polygon = geometry.value.asPolygon();
  return polygon == nullptr ? 1 : polygon->coordinates.size();
}

Line partOf(const GeoJSONGeometry& geometry, std::size_t part) {
  if (part >= partsOf(geometry)) return {};
  if (const auto* polygon = geometry.value.asPolygon()) return polygon->coordinates[part];
  if (const auto* line = geometry.value.asLineString()) return line->coordinates;
  return {&geometry.value.asPoint()->coordinates, 1};
}

GeoJSONGeometryValue valueOf(OmbrixGeoJSONKind kind, const CLLocationCoordinate2D* next,
                             std::span<const std::size_t> counts) {
  std::vector<std::vector<CLLocationCoordinate2D>> parts;
  for (const std::size_t count : counts) {
    parts.emplace_back(next, next + count);
    next += count;
  }
  if (kind == OmbrixGeoJSONKindPolygon) {
    return GeoJSONGeometryValue::polygon({.coordinates = std::move(parts)});
  }
  if (parts.size() != 1) throw platform::Error("Such a geometry has one part.");
  if (kind == OmbrixGeoJSONKindLineString) {
    return GeoJSONGeometryValue::lineString({.coordinates = std::move(parts[0])});
  }
  if (kind != OmbrixGeoJSONKindPoint) throw platform::Error("There is no such kind of geometry.");
  if (parts[0].size() != 1) throw platform::Error("A point has one coordinate.");
  return GeoJSONGeometryValue::point({.coordinates = parts[0][0]});
}

}  // namespace

OmbrixGeoJSON* ombrix_GeoJSON_initWithData_length_error_(const uint8_t* bytes, size_t length,
                                                         OmbrixError** error) {
  return c::catching(error, [&] {
    const auto data = std::as_bytes(std::span(bytes, length));
    return new OmbrixGeoJSON{platform::JSONDecoder().decode<GeoJSONGeometry>(data)};
  });
}

OmbrixGeoJSON* ombrix_GeoJSON_initWithKind_coordinates_counts_parts_error_(
    OmbrixGeoJSONKind kind, const OmbrixCoordinate* coordinates, const size_t* counts, size_t parts,
    OmbrixError** error) {
  return c::catching(error, [&] {
    const auto* first = reinterpret_cast<const CLLocationCoordinate2D*>(coordinates);
    return new OmbrixGeoJSON{{valueOf(kind, first, {counts, parts})}};
  });
}

void ombrix_GeoJSON_release(OmbrixGeoJSON* self) { delete self; }

OmbrixGeoJSONKind ombrix_GeoJSON_kind(const OmbrixGeoJSON* self) {
  return static_cast<OmbrixGeoJSONKind>(self->geometry.value.kind());
}

size_t ombrix_GeoJSON_partCount(const OmbrixGeoJSON* self) { return partsOf(self->geometry); }
const OmbrixCoordinate* ombrix_GeoJSON_coordinatesOfPart_(const OmbrixGeoJSON* self, size_t part) {
  return reinterpret_cast<const OmbrixCoordinate*>(partOf(self->geometry, part).data());
}
size_t ombrix_GeoJSON_coordinateCountOfPart_(const OmbrixGeoJSON* self, size_t part) {
  return partOf(self->geometry, part).size();
}

OmbrixData ombrix_GeoJSON_data_error_(const OmbrixGeoJSON* self, OmbrixError** error) {
  return c::catching(error, [&] {
    return c::copied(std::optional(platform::JSONEncoder().encode(self->geometry)));
  });
}

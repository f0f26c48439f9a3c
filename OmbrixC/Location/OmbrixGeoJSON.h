#ifndef OMBRIXC_LOCATION_OMBRIX_GEO_JSON_H
#define OMBRIXC_LOCATION_OMBRIX_GEO_JSON_H

#include "OmbrixC/Location/OmbrixLocation.h"
#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The kinds of geometry.
typedef enum OmbrixGeoJSONKind {
  OmbrixGeoJSONKindPolygon = 0,
  OmbrixGeoJSONKindLineString = 1,
  OmbrixGeoJSONKindPoint = 2,
} OmbrixGeoJSONKind;

/// One geometry of RFC 7946; never changes. A polygon has a part for each ring, as given; a line
/// and a point have one. Any thread.
typedef struct OmbrixGeoJSON OmbrixGeoJSON;

/// Reads a geometry from JSON, borrowed for the call: degrees, as [longitude, latitude], further
/// numbers of a position are left out. NULL and an error for what is none. A position of fewer than
/// two numbers in valid JSON stops the program. The caller owns the geometry.
OmbrixGeoJSON* ombrix_GeoJSON_initWithData_length_error_(const uint8_t* bytes, size_t length,
                                                         OmbrixError** error);

/// A geometry of coordinates in degrees, which are copied: those of all parts, one after the other,
/// and how many each part has. NULL and an error for a kind out of range, a line without its one
/// part, and a point without its one coordinate. The caller owns the geometry.
OmbrixGeoJSON* ombrix_GeoJSON_initWithKind_coordinates_counts_parts_error_(
    OmbrixGeoJSONKind kind, const OmbrixCoordinate* coordinates, const size_t* counts, size_t parts,
    OmbrixError** error);

/// Gives a geometry back; NULL is allowed.
void ombrix_GeoJSON_release(OmbrixGeoJSON* self);

/// What it is.
OmbrixGeoJSONKind ombrix_GeoJSON_kind(const OmbrixGeoJSON* self);

/// How many parts it has; 0 for a polygon without rings.
size_t ombrix_GeoJSON_partCount(const OmbrixGeoJSON* self);
/// The coordinates of a part, in degrees, borrowed until the geometry is released; NULL for a part
/// out of range.
const OmbrixCoordinate* ombrix_GeoJSON_coordinatesOfPart_(const OmbrixGeoJSON* self, size_t part);
/// How many they are; 0 for a part out of range.
size_t ombrix_GeoJSON_coordinateCountOfPart_(const OmbrixGeoJSON* self, size_t part);

/// Its JSON, the members "type" and "coordinates", which the caller owns. Without bytes, and an
/// error, for a coordinate that is not finite.
OmbrixData ombrix_GeoJSON_data_error_(const OmbrixGeoJSON* self, OmbrixError** error);

#ifdef __cplusplus
}
#endif

#endif

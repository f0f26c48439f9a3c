#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "OmbrixCore/Location/CLLocationCoordinate2D.hpp"
#include "OmbrixPlatform/Coding/CodingFields.hpp"
#include "OmbrixPlatform/Values/Hasher.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"

// Geometry objects of RFC 7946: points, lines and polygons, as plain values. Any coder reads and
// writes them:
//
//     const auto geometry = platform::JSONDecoder().decode<GeoJSONGeometry>(bytes);
//     if (const GeoJSONLineString* line = geometry.value.asLineString()) draw(line->coordinates);
//
// Writing produces exactly the members "type" and "coordinates", in this order; a position is the
// array [longitude, latitude]. Reading accepts members in any order and ignores others, as well as
// further numbers of a position, such as an altitude. Decoding throws `DecodingError` for a missing
// or mistyped member, for an unsupported kind of geometry, and for a "type" that belongs to another
// structure. It stops the program at a position with fewer than two numbers, except in a document
// that is meant to be JSON but is not valid.
//
// Equality and hash compare the content, with coordinates on the microdegree grid and the limits of
// `CLLocationCoordinate2D`. All of this may be used from any thread.

namespace ombrix {

/// The kinds of geometry. Raw values: "Polygon", "LineString", "Point".
// Kept: "linestring" here, "lineString" in `GeoJSONGeometryValue`; callers spell both.
enum class GeoJSONGeometryType { polygon, linestring, point };

/// The members of every geometry object, in the order of writing.
enum class GeoJSONRootKeys { type, coordinates };

/// One position.
struct GeoJSONPoint {
  using RootKeys = GeoJSONRootKeys;

  /// Written as it is, even if it names another kind, which then does not decode; the same applies
  /// to the other structures.
  GeoJSONGeometryType type = GeoJSONGeometryType::point;
  CLLocationCoordinate2D coordinates;

  friend bool operator==(const GeoJSONPoint&, const GeoJSONPoint&) = default;
  void hashInto(platform::Hasher& hasher) const;
};

/// Any number of positions, in order.
struct GeoJSONLineString {
  using RootKeys = GeoJSONRootKeys;

  GeoJSONGeometryType type = GeoJSONGeometryType::linestring;
  std::vector<CLLocationCoordinate2D> coordinates;

  friend bool operator==(const GeoJSONLineString&, const GeoJSONLineString&) = default;
  void hashInto(platform::Hasher& hasher) const;
};

/// Rings, stored as given: closing positions and winding order are neither added nor checked.
struct GeoJSONPolygon {
  using RootKeys = GeoJSONRootKeys;

  GeoJSONGeometryType type = GeoJSONGeometryType::polygon;
  std::vector<std::vector<CLLocationCoordinate2D>> coordinates;

  friend bool operator==(const GeoJSONPolygon&, const GeoJSONPolygon&) = default;
  void hashInto(platform::Hasher& hasher) const;
};

/// One geometry of any kind; by default a polygon without rings.
class GeoJSONGeometryValue {
 public:
  enum class Case { polygon, lineString, point };

  GeoJSONGeometryValue() = default;
  static GeoJSONGeometryValue polygon(GeoJSONPolygon polygon) {
    return GeoJSONGeometryValue(std::move(polygon));
  }
  static GeoJSONGeometryValue lineString(GeoJSONLineString lineString) {
    return GeoJSONGeometryValue(std::move(lineString));
  }
  static GeoJSONGeometryValue point(GeoJSONPoint point) { return GeoJSONGeometryValue(point); }

  [[nodiscard]] Case kind() const noexcept { return static_cast<Case>(held_.index()); }

  /// The structure if it is of this kind, otherwise null.
  [[nodiscard]] const GeoJSONPolygon* asPolygon() const { return std::get_if<0>(&held_); }
  [[nodiscard]] const GeoJSONLineString* asLineString() const { return std::get_if<1>(&held_); }
  [[nodiscard]] const GeoJSONPoint* asPoint() const { return std::get_if<2>(&held_); }

  /// Calls the visitor with the held structure and returns its result.
  template <class Visitor>
  decltype(auto) visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), held_);
  }

  friend bool operator==(const GeoJSONGeometryValue&, const GeoJSONGeometryValue&) = default;
  void hashInto(platform::Hasher& hasher) const;

 private:
  template <class Held>
  explicit GeoJSONGeometryValue(Held held) : held_(std::move(held)) {}

  std::variant<GeoJSONPolygon, GeoJSONLineString, GeoJSONPoint> held_;
};

/// A geometry object of any kind. Its coded form is that of the structure it holds.
struct GeoJSONGeometry {
  using RootKeys = GeoJSONRootKeys;

  GeoJSONGeometryValue value;

  friend bool operator==(const GeoJSONGeometry&, const GeoJSONGeometry&) = default;
  void hashInto(platform::Hasher& hasher) const { value.hashInto(hasher); }
};

/// The types that are coded as a geometry object.
template <class T>
concept GeoJSONObject = std::same_as<T, GeoJSONPoint> || std::same_as<T, GeoJSONLineString> ||
                        std::same_as<T, GeoJSONPolygon> || std::same_as<T, GeoJSONGeometry>;

namespace detail {

// Instantiated for the readers and writers of the platform's coders.
template <class Reader>
struct GeoJSONReading {
  static void decode(Reader& reader, GeoJSONPoint& out);
  static void decode(Reader& reader, GeoJSONLineString& out);
  static void decode(Reader& reader, GeoJSONPolygon& out);
  static void decode(Reader& reader, GeoJSONGeometry& out);
};
template <class Writer>
struct GeoJSONWriting {
  static void encode(Writer& writer, const GeoJSONPoint& value);
  static void encode(Writer& writer, const GeoJSONLineString& value);
  static void encode(Writer& writer, const GeoJSONPolygon& value);
  static void encode(Writer& writer, const GeoJSONGeometry& value);
};

}  // namespace detail
}  // namespace ombrix

template <>
struct ombrix::platform::RawValues<ombrix::GeoJSONGeometryType> {
  static constexpr std::pair<GeoJSONGeometryType, std::string_view> table[] = {
      {GeoJSONGeometryType::polygon, "Polygon"},
      {GeoJSONGeometryType::linestring, "LineString"},
      {GeoJSONGeometryType::point, "Point"},
  };
};

template <>
struct ombrix::platform::RawValues<ombrix::GeoJSONRootKeys> {
  static constexpr std::pair<GeoJSONRootKeys, std::string_view> table[] = {
      {GeoJSONRootKeys::type, "type"},
      {GeoJSONRootKeys::coordinates, "coordinates"},
  };
};

template <ombrix::GeoJSONObject T>
struct ombrix::platform::Coding<T> {
  template <class Reader>
  static void decode(Reader& reader, T& out) {
    ombrix::detail::GeoJSONReading<Reader>::decode(reader, out);
  }
  template <class Writer>
  static void encode(Writer& writer, const T& value) {
    ombrix::detail::GeoJSONWriting<Writer>::encode(writer, value);
  }
};

template <class T>
  requires ombrix::GeoJSONObject<T> || std::same_as<T, ombrix::GeoJSONGeometryValue>
struct std::hash<T> {
  std::size_t operator()(const T& value) const {
    ombrix::platform::Hasher hasher;
    value.hashInto(hasher);
    return hasher.finalize();
  }
};

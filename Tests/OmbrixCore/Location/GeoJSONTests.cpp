#include "OmbrixCore/Location/GeoJSON.hpp"

#include <gtest/gtest.h>

#include <string>
#include <unordered_set>
#include <vector>

#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"

namespace ombrix {
namespace {

using platform::DecodingError;
using platform::JSONDecoder;
using platform::JSONEncoder;
using Value = GeoJSONGeometryValue;

/// A list of geometries that is coded through the interface instead of the fast path.
struct Geometries {
  std::vector<GeoJSONGeometry> list;
  void encode(platform::Encoder& encoder) const { encoder.singleValueContainer()->encode(list); }
  static Geometries decode(platform::Decoder& decoder) {
    return {decoder.singleValueContainer()->decode<std::vector<GeoJSONGeometry>>()};
  }
};

template <class T>
T decode(const std::string& json) {
  return JSONDecoder().decode<T>(platform::bytesOf(json));
}

// Catches swapped coordinates, a wrapper, another order of members, and a coder that strays.
TEST(GeoJSONTests, EveryCoderKeepsTheFlatForm) {
  const CLLocationCoordinate2D a{46.5, 7.25}, b{-45, 179.123456}, c{1e-7, -180};
  const Geometries all{{
      {Value::point({.coordinates = a})},
      {Value::lineString({})},
      {Value::lineString({.coordinates = {a, b}})},
      {Value::polygon({.coordinates = {{a, b, c}, {}, {c}}})},
  }};
  const std::string json = R"([{"type":"Point","coordinates":[7.25,46.5]},)"
                           R"({"type":"LineString","coordinates":[]},)"
                           R"({"type":"LineString","coordinates":[[7.25,46.5],[179.123456,-45]]},)"
                           R"({"type":"Polygon","coordinates":)"
                           R"([[[7.25,46.5],[179.123456,-45],[-180,1e-07]],[],[[-180,1e-07]]]}])";
  EXPECT_EQ(platform::textOf(JSONEncoder().encode(all.list)), json);
  EXPECT_EQ(platform::textOf(JSONEncoder().encode(all)), json);
  EXPECT_EQ(decode<std::vector<GeoJSONGeometry>>(json), all.list);
  EXPECT_EQ(decode<Geometries>(json).list, all.list);

  const platform::Data plist = platform::PropertyListEncoder().encode(all.list);
  const auto decoded = platform::PropertyListDecoder().decode<std::vector<GeoJSONGeometry>>(plist);
  EXPECT_EQ(decoded, all.list);
  EXPECT_EQ(platform::PropertyListDecoder().decode<Geometries>(plist).list, all.list);

  const GeoJSONPoint misnamed{.type = GeoJSONGeometryType::polygon, .coordinates = a};
  EXPECT_EQ(platform::textOf(JSONEncoder().encode(misnamed)),
            R"({"type":"Polygon","coordinates":[7.25,46.5]})");
}

// Catches a reader that depends on the order of members or stumbles over what others write.
TEST(GeoJSONTests, FurtherNumbersAndMembersArePassedOver) {
  for (
      const char* json : {
          R"({"type":"Point","coordinates":[7.25,46.5,2300]})",
          R"({"coordinates":[7.25,46.5,2300,1,1e3],"type":"Point"})",
          R"( {"bbox":[[],{"type":1}],"t\u0079pe":"P\u006fint","x":null,"coordinates":[725e-2, 46.5]} )",
      }) {
    const auto geometry = decode<GeoJSONGeometry>(json);
    ASSERT_EQ(geometry.value.kind(), Value::Case::point);
    EXPECT_EQ(geometry.value.asPoint()->coordinates, (CLLocationCoordinate2D{46.5, 7.25}));
    EXPECT_EQ(decode<GeoJSONPoint>(json), *geometry.value.asPoint());
  }
}

// Catches bad input that is let through, stops the program, or is reported without its place.
TEST(GeoJSONTests, EverythingElseIsAnError) {
  using Kind = DecodingError::Kind;
  const struct {
    const char* json;
    Kind kind;
    const char* place;
  } cases[] = {
      {R"({"type":"MultiPoint","coordinates":[[1,2]]})", Kind::dataCorrupted, "[0].type"},
      {R"({"coordinates":[[]]})", Kind::keyNotFound, "[0]"},
      {R"({"coordinates":[1],"type":null})", Kind::valueNotFound, "[0].type"},
      {R"({"type":5,"coordinates":[1]})", Kind::typeMismatch, "[0].type"},
      {R"({"type":"Point"})", Kind::keyNotFound, "[0]"},
      {R"({"type":"Point","coordinates":[1,null]})", Kind::valueNotFound, "[0].coordinates[1]"},
      {R"({"type":"Point","coordinates":[1,2,"3"]})", Kind::typeMismatch, "[0].coordinates[2]"},
      {R"({"type":"Polygon","coordinates":[[[1,2],["a"]]]})", Kind::typeMismatch,
       "[0].coordinates[0][1][0]"},
  };
  for (const auto& [object, kind, place] : cases) {
    const auto attempt = [&]<class T>(T*) {
      try {
        static_cast<void>(decode<T>("[" + std::string(object) + "]"));
        ADD_FAILURE() << object;
      } catch (const DecodingError& error) {
        EXPECT_EQ(error.kind(), kind) << error.what();
        EXPECT_EQ(platform::describe(error.codingPath()), place) << error.what();
      }
    };
    attempt(static_cast<std::vector<GeoJSONGeometry>*>(nullptr));
    attempt(static_cast<Geometries*>(nullptr));
  }
  EXPECT_THROW((void)decode<GeoJSONPoint>(R"({"type":"Polygon","coordinates":[1,2]})"),
               DecodingError);
}

// Catches the stop made an error, and damaged bytes that stop the program.
TEST(GeoJSONDeathTests, AShortPositionStopsTheProgram) {
  EXPECT_DEATH((void)decode<GeoJSONGeometry>(R"({"type":"Point","coordinates":[]})"),
               "fewer than two numbers at \"coordinates\\[0\\]\"");
  const std::string line = R"({"type":"LineString","coordinates":[[1,2],[3]]})";
  EXPECT_DEATH((void)decode<GeoJSONLineString>(line), "at \"coordinates\\[1\\]\\[1\\]\"");
  EXPECT_DEATH((void)decode<Geometries>("[" + line + "]"), "fewer than two numbers");
  for (const std::string& damaged : {line.substr(0, line.size() - 1), line + "x"}) {
    EXPECT_THROW((void)decode<GeoJSONGeometry>(damaged), DecodingError);
  }
  // The last one of equal members counts, whatever stands under the others.
  const std::string twice =
      R"({"type":"Point","coordinates":[1],"type":"LineString","coordinates":[[1,2]]})";
  EXPECT_EQ(decode<GeoJSONGeometry>(twice).value.asLineString()->coordinates.size(), 1U);
  EXPECT_EQ(decode<Geometries>("[" + twice + "]").list.front(), decode<GeoJSONGeometry>(twice));
  const std::string shortLast = R"({"type":"Point","coordinates":[1,2],"coordinates":[1]})";
  EXPECT_DEATH((void)decode<GeoJSONGeometry>(shortLast), "at \"coordinates\\[1\\]\"");
  EXPECT_DEATH((void)decode<Geometries>("[" + shortLast + "]"), "coordinates\\[1\\]\"");
}

// Catches equality or hashes off the grid of coordinates, or blind to order, rings or kind.
TEST(GeoJSONTests, EqualityAndHashGoByContent) {
  const CLLocationCoordinate2D a{46.5000001, 7.25}, sameCell{46.5000009, 7.25}, b{46.500001, 7.25};
  using Polygon = GeoJSONPolygon;
  const std::unordered_set<Value> distinct = {
      Value::point({.coordinates = a}),
      Value::lineString({.coordinates = {a, b}}),
      Value::lineString({.coordinates = {b, a}}),
      Value::polygon(Polygon{.coordinates = {{a, b}}}),
      Value::polygon(Polygon{.coordinates = {{a}, {b}}}),
  };
  EXPECT_EQ(distinct.size(), 5U);
  EXPECT_TRUE(distinct.contains(Value::lineString({.coordinates = {sameCell, b}})));
  EXPECT_TRUE(distinct.contains(Value::polygon(Polygon{.coordinates = {{sameCell}, {b}}})));
}

}  // namespace
}  // namespace ombrix

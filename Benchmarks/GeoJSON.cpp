// A line of 100,000 positions from and to GeoJSON.

#include <benchmark/benchmark.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <bit>
#include <random>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <simdjson.h>
#pragma GCC diagnostic pop

#include "CodingSamples.hpp"
#include "OmbrixCore/Location/GeoJSON.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"

namespace {

using ombrix::GeoJSONGeometry;
using ombrix::GeoJSONGeometryValue;
using Line = std::vector<ombrix::CLLocationCoordinate2D>;

// Microdegrees, as tracks have them, or all the digits of a double, as computed positions have.
Line line(bool microdegrees) {
  std::mt19937_64 random(6);
  Line positions;
  for (std::size_t i = 0; i < ombrix::bench::kPositions; ++i) {
    if (microdegrees) {
      positions.push_back(
          {ombrix::bench::decimal(random, 90, 1e-6), ombrix::bench::decimal(random, 180, 1e-6)});
    } else {
      positions.push_back(
          {static_cast<double>(random()) * 0x1p-58, static_cast<double>(random()) * 0x1p-57});
    }
  }
  return positions;
}

std::string encodeOurs(const GeoJSONGeometry& geometry) {
  const auto bytes = ombrix::platform::JSONEncoder().encode(geometry);
  return std::string(ombrix::platform::textOf(bytes));
}

Line decodeOurs(const std::string& text) {
  auto geometry =
      ombrix::platform::JSONDecoder().decode<GeoJSONGeometry>(ombrix::platform::bytesOf(text));
  return geometry.value.asLineString()->coordinates;
}

// The text is padded once, outside the timing, as the library asks for.
Line decodeSimdjson(const simdjson::padded_string& text) {
  thread_local simdjson::ondemand::parser parser;
  simdjson::ondemand::document document = parser.iterate(text);
  Line positions;
  if (std::string_view(document["type"]) != "LineString") return positions;
  for (simdjson::ondemand::array pair : document["coordinates"].get_array()) {
    auto& position = positions.emplace_back();
    std::size_t i = 0;
    for (auto number : pair) {
      (i++ == 0 ? position.longitude : position.latitude) = number.get_double();
    }
  }
  return positions;
}

std::string encodeRapidjson(const Line& positions) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer writer(buffer);
  writer.StartObject();
  writer.Key("type"), writer.String("LineString");
  writer.Key("coordinates");
  writer.StartArray();
  for (const auto& position : positions) {
    writer.StartArray();
    writer.Double(position.longitude), writer.Double(position.latitude);
    writer.EndArray();
  }
  writer.EndArray();
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

void requireSame(const Line& a, const Line& b, const char* what) {
  const auto sameBits = [](double x, double y) {
    return std::bit_cast<std::uint64_t>(x) == std::bit_cast<std::uint64_t>(y);
  };
  bool same = a.size() == b.size();
  for (std::size_t i = 0; same && i < a.size(); ++i) {
    same = sameBits(a[i].latitude, b[i].latitude) && sameBits(a[i].longitude, b[i].longitude);
  }
  ombrix::bench::require(same, what);
}

void registerFor(const std::string& group, bool microdegrees) {
  const auto* positions = new Line(line(microdegrees));
  const auto* geometry =
      new GeoJSONGeometry{GeoJSONGeometryValue::lineString({.coordinates = *positions})};
  const auto* text = new std::string(encodeOurs(*geometry));
  const auto* padded = new simdjson::padded_string(*text);
  requireSame(decodeOurs(*text), *positions, "decoding, ours");
  requireSame(decodeSimdjson(*padded), *positions, "decoding, simdjson");
  requireSame(decodeOurs(encodeRapidjson(*positions)), *positions, "encoding, rapidjson");

  const auto add = [](const std::string& name, auto run) {
    benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State& state) {
      for (auto _ : state) benchmark::DoNotOptimize(run());
      state.SetItemsProcessed(state.iterations() *
                              static_cast<std::int64_t>(ombrix::bench::kPositions));
    })->Unit(benchmark::kMillisecond);
  };
  add(group + "-decode/ours", [text] { return decodeOurs(*text); });
  add(group + "-decode/simdjson", [padded] { return decodeSimdjson(*padded); });
  add(group + "-encode/ours",
      [geometry] { return ombrix::platform::JSONEncoder().encode(*geometry); });
  add(group + "-encode/rapidjson", [positions] { return encodeRapidjson(*positions); });
}

int registerAll() {
  registerFor("geojson-line", true);
  registerFor("geojson-line-all-digits", false);
  return 0;
}

const int kRegistered = registerAll();

}  // namespace

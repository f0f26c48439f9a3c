// 10,000 objects of eight fields, and a line of 100,000 positions, from and to JSON.

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <nlohmann/json.hpp>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <simdjson.h>
#pragma GCC diagnostic pop

#include "CodingSamples.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"

namespace {

using namespace ombrix::bench;
using Fixes = std::vector<Fix>;

const std::string& fixesText() {
  static const std::string text{
      ombrix::platform::textOf(ombrix::platform::JSONEncoder{}.encode(fixes()))};
  return text;
}
const std::string& positionsText() {
  static const std::string text{
      ombrix::platform::textOf(ombrix::platform::JSONEncoder{}.encode(positions()))};
  return text;
}

template <class T>
T decodeOurs(const std::string& text) {
  return ombrix::platform::JSONDecoder{}.decode<T>(ombrix::platform::bytesOf(text));
}

// The text is padded once, outside the timing, as the library asks for.
Fixes decodeSimdjson(const simdjson::padded_string& text) {
  thread_local simdjson::ondemand::parser parser;
  simdjson::ondemand::document document = parser.iterate(text);
  Fixes list;
  for (simdjson::ondemand::object object : document.get_array()) {
    Fix& fix = list.emplace_back();
    fix.id = object.find_field("id");
    fix.name = std::string_view(object.find_field("name"));
    fix.latitude = object.find_field("latitude");
    fix.longitude = object.find_field("longitude");
    fix.altitude = object.find_field("altitude");
    fix.speed = object.find_field("speed");
    fix.course = object.find_field("course");
    fix.accurate = object.find_field("accurate");
  }
  return list;
}

Positions positionsSimdjson(const simdjson::padded_string& text) {
  thread_local simdjson::ondemand::parser parser;
  simdjson::ondemand::document document = parser.iterate(text);
  Positions list;
  for (simdjson::ondemand::array pair : document.get_array()) {
    auto& position = list.emplace_back();
    std::size_t i = 0;
    for (auto number : pair) position[i++] = number.get_double();
  }
  return list;
}

Fixes decodeRapidjson(const std::string& text) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  Fixes list;
  for (const auto& object : document.GetArray()) {
    const auto& name = object["name"];
    list.push_back({object["id"].GetInt64(),
                    {name.GetString(), name.GetStringLength()},
                    object["latitude"].GetDouble(),
                    object["longitude"].GetDouble(),
                    object["altitude"].GetDouble(),
                    object["speed"].GetDouble(),
                    object["course"].GetDouble(),
                    object["accurate"].GetBool()});
  }
  return list;
}

Fixes decodeNlohmann(const std::string& text) {
  Fixes list;
  for (const auto& object : nlohmann::json::parse(text)) {
    list.push_back({object.at("id"), object.at("name"), object.at("latitude"),
                    object.at("longitude"), object.at("altitude"), object.at("speed"),
                    object.at("course"), object.at("accurate")});
  }
  return list;
}

template <class T>
std::size_t encodeOurs(const T& value) {
  const auto bytes = ombrix::platform::JSONEncoder{}.encode(value);
  benchmark::DoNotOptimize(bytes.data());
  return bytes.size();
}

std::string encodeRapidjson(const Fixes& list) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer writer(buffer);
  writer.StartArray();
  for (const Fix& fix : list) {
    writer.StartObject();
    writer.Key("id"), writer.Int64(fix.id);
    writer.Key("name");
    writer.String(fix.name.data(), static_cast<rapidjson::SizeType>(fix.name.size()));
    writer.Key("latitude"), writer.Double(fix.latitude);
    writer.Key("longitude"), writer.Double(fix.longitude);
    writer.Key("altitude"), writer.Double(fix.altitude);
    writer.Key("speed"), writer.Double(fix.speed);
    writer.Key("course"), writer.Double(fix.course);
    writer.Key("accurate"), writer.Bool(fix.accurate);
    writer.EndObject();
  }
  writer.EndArray();
  return {buffer.GetString(), buffer.GetSize()};
}

std::string positionsRapidjson(const Positions& list) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer writer(buffer);
  writer.StartArray();
  for (const auto& [x, y] : list) {
    writer.StartArray();
    writer.Double(x), writer.Double(y);
    writer.EndArray();
  }
  writer.EndArray();
  return {buffer.GetString(), buffer.GetSize()};
}

std::string encodeNlohmann(const Fixes& list) {
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const Fix& fix : list) {
    array.push_back({{"id", fix.id},
                     {"name", fix.name},
                     {"latitude", fix.latitude},
                     {"longitude", fix.longitude},
                     {"altitude", fix.altitude},
                     {"speed", fix.speed},
                     {"course", fix.course},
                     {"accurate", fix.accurate}});
  }
  return array.dump();
}

void agree() {
  const simdjson::padded_string padded(fixesText());
  require(decodeOurs<Fixes>(fixesText()) == fixes(), "decoding, ours");
  require(decodeSimdjson(padded) == fixes(), "decoding, simdjson");
  require(decodeRapidjson(fixesText()) == fixes(), "decoding, rapidjson");
  require(decodeNlohmann(fixesText()) == fixes(), "decoding, nlohmann");
  require(decodeOurs<Positions>(positionsText()) == positions(), "positions, ours");
  require(positionsSimdjson(simdjson::padded_string(positionsText())) == positions(),
          "positions, simdjson");
  require(decodeOurs<Fixes>(encodeRapidjson(fixes())) == fixes(), "encoding, rapidjson");
  require(decodeOurs<Fixes>(encodeNlohmann(fixes())) == fixes(), "encoding, nlohmann");
  require(decodeOurs<Positions>(positionsRapidjson(positions())) == positions(),
          "positions, rapidjson");
}

template <class Run>
void measure(benchmark::State& state, std::size_t items, Run run) {
  for (auto _ : state) benchmark::DoNotOptimize(run());
  state.SetItemsProcessed(static_cast<std::int64_t>(items) *
                          static_cast<std::int64_t>(state.iterations()));
}

int registerAll() {
  agree();
  const auto add = [](const char* name, std::size_t items, auto run) {
    benchmark::RegisterBenchmark(name, [items, run](benchmark::State& state) {
      measure(state, items, run);
    })->Unit(benchmark::kMillisecond);
  };
  static const simdjson::padded_string padded(fixesText());
  static const simdjson::padded_string paddedPositions(positionsText());
  add("json-decode/ours", kFixes, [] { return decodeOurs<Fixes>(fixesText()); });
  add("json-decode/simdjson", kFixes, [] { return decodeSimdjson(padded); });
  add("json-decode/rapidjson", kFixes, [] { return decodeRapidjson(fixesText()); });
  add("json-decode/nlohmann", kFixes, [] { return decodeNlohmann(fixesText()); });
  add("json-encode/ours", kFixes, [] { return encodeOurs(fixes()); });
  add("json-encode/rapidjson", kFixes, [] { return encodeRapidjson(fixes()); });
  add("json-encode/nlohmann", kFixes, [] { return encodeNlohmann(fixes()); });
  add("positions-decode/ours", kPositions, [] { return decodeOurs<Positions>(positionsText()); });
  add("positions-decode/simdjson", kPositions, [] { return positionsSimdjson(paddedPositions); });
  add("positions-encode/ours", kPositions, [] { return encodeOurs(positions()); });
  add("positions-encode/rapidjson", kPositions, [] { return positionsRapidjson(positions()); });
  return 0;
}

const int kRegistered = registerAll();

}  // namespace

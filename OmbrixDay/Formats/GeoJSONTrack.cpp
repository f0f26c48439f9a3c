// GeoJSON (RFC 7946): a feature whose line string has altitudes; the other figures stand in arrays
// of its properties, one item a position, as "coordTimes" does in other programs' files.

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix::detail {
namespace {

using platform::JSON;

using platform::JSONReader;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// What a feature says of its line, in the order of the document. Read in one pass: the document
/// itself is not kept, and what is kept has a limit.
struct Line {
  struct Position {
    double longitude = kNone, latitude = kNone, altitude = kNone;
  };
  enum Figure { speed, course, horizontalAccuracy, verticalAccuracy, heartRate, kFigures };

  bool isLine = false;
  std::optional<std::vector<Position>> positions;
  std::optional<std::vector<double>> times[3];  ///< Seconds since 1970, by the places they stand.
  std::array<std::vector<double>, kFigures> figures;
  std::string name;

  [[nodiscard]] std::optional<double> figure(Figure of, std::size_t index) const {
    const auto& all = figures[of];
    if (index >= all.size() || std::isnan(all[index])) return std::nullopt;
    return all[index];
  }
};

constexpr std::pair<std::string_view, Line::Figure> kFigureNames[] = {
    {"speeds", Line::speed},
    {"courses", Line::course},
    {"horizontalAccuracies", Line::horizontalAccuracy},
    {"verticalAccuracies", Line::verticalAccuracy},
    {"heartRates", Line::heartRate}};

std::string readText(JSONReader& json) {
  if (json.peek() == '"') return std::string(json.readText());
  json.skip();
  return {};
}

double readNumber(JSONReader& json) {
  const char c = json.peek();
  if (c == '-' || (c >= '0' && c <= '9')) return json.readReal();
  json.skip();
  return kNone;
}

double readTime(JSONReader& json) {
  const auto time = timeFromText(readText(json));
  return time ? platform::timeIntervalSince1970(*time) : kNone;
}

/// Calls back at each member of what comes, with its name; what is no object has none.
template <class Member>
void readMembers(JSONReader& json, Member member) {
  if (json.peek() != '{') return json.skip();
  json.beginObject();
  for (std::string_view key; json.nextKey(key);) member(key);
}

/// The items of what comes; none of what is no array. What is thrown leaves those before it, but no
/// number at the very place: the rest of it may be missing.
template <class Item>
void readItems(JSONReader& json, Item (*read)(JSONReader&), std::vector<Item>& items) {
  items.clear();
  if (json.peek() != '[') return json.skip();
  bool mayBeCut = false;
  try {
    for (json.beginArray(); json.nextItem();) {
      mayBeCut = false;
      if (items.size() >= kMostTrackPoints) {
        throw TrackFormatError("it holds more than five million points");
      }
      const char first = json.peek();
      items.push_back(read(json));
      mayBeCut = first != '[' && first != '"';
    }
  } catch (...) {
    if (mayBeCut) items.pop_back();
    throw;
  }
}

Line::Position readPosition(JSONReader& json) {
  Line::Position position;
  if (json.peek() != '[') {
    json.skip();
    return position;
  }
  std::size_t index = 0;
  for (json.beginArray(); json.nextItem(); ++index) {
    if (index == 0) {
      position.longitude = readNumber(json);
    } else if (index == 1) {
      position.latitude = readNumber(json);
    } else if (index == 2) {
      position.altitude = readNumber(json);
    } else {
      json.skip();
    }
  }
  return position;
}

void readGeometry(JSONReader& json, Line& line) {
  line.isLine = false;
  line.positions.reset();
  readMembers(json, [&](std::string_view key) {
    if (key == "type") {
      line.isLine = readText(json) == "LineString";
    } else if (key == "coordinates" && json.peek() == '[') {
      readItems(json, readPosition, line.positions.emplace());
    } else {
      json.skip();
    }
  });
}

void readProperties(JSONReader& json, Line& line) {
  readMembers(json, [&](std::string_view key) {
    const auto* figure =
        std::ranges::find(kFigureNames, key, [](auto& name) { return name.first; });
    if (figure != std::end(kFigureNames)) {
      readItems(json, readNumber, line.figures[figure->second]);
    } else if (key == "name") {
      line.name = readText(json);
    } else if (key == "coordTimes" || key == "times") {
      readItems(json, readTime, line.times[key == "times" ? 1 : 0].emplace());
    } else if (key == "coordinateProperties") {
      readMembers(json, [&](std::string_view inner) {
        if (inner != "times") return json.skip();
        readItems(json, readTime, line.times[2].emplace());
      });
    } else {
      json.skip();
    }
  });
}

const std::vector<double>* timesOf(const Line& line) {
  const auto* times = std::ranges::find_if(line.times, [](auto& list) { return list.has_value(); });
  return times == std::end(line.times) ? nullptr : &**times;
}

/// Adds the points of a line to the track.
void addLine(const Line& line, Track& track) {
  if (!line.positions) throw TrackFormatError("a line has no coordinates");
  const auto* times = timesOf(line);
  if (times == nullptr) throw TrackFormatError("its line has no times (\"coordTimes\")");
  if (track.name.empty()) track.name = line.name;
  for (std::size_t i = 0; i < line.positions->size(); ++i) {
    const Line::Position& position = (*line.positions)[i];
    const bool hasPlace = !std::isnan(position.latitude) && !std::isnan(position.longitude);
    const double time = i < times->size() ? (*times)[i] : kNone;
    CLLocation fix;
    if (hasPlace) fix.coordinate = {position.latitude, position.longitude};
    fix.altitude = position.altitude;
    fix.speed = line.figure(Line::speed, i).value_or(-1);
    fix.course = line.figure(Line::course, i).value_or(-1);
    fix.horizontalAccuracy = line.figure(Line::horizontalAccuracy, i).value_or(-1);
    fix.verticalAccuracy = line.figure(Line::verticalAccuracy, i).value_or(-1);
    keep(track, hasPlace ? &fix : nullptr, line.figure(Line::heartRate, i),
         std::isnan(time) ? std::nullopt : std::optional(platform::dateSince1970(time)));
  }
}

enum class Place { top, inCollection };

/// Reads a feature, or at the top a collection of them, whose members may come in any order.
void readObject(JSONReader& json, Place place, Track& track) {
  std::string type;
  Line line;
  Track inside;
  const auto read = [&](std::string_view key) {
    if (key == "type") {
      type = readText(json);
    } else if (key == "geometry") {
      readGeometry(json, line);
    } else if (key == "properties") {
      for (auto& times : line.times) times.reset();
      line.figures = {};
      line.name.clear();
      readProperties(json, line);
    } else if (key == "features" && place == Place::top && json.peek() == '[') {
      inside = {};
      for (json.beginArray(); json.nextItem();) readObject(json, Place::inCollection, inside);
    } else {
      json.skip();
    }
  };
  try {
    readMembers(json, read);
  } catch (...) {
    // The rest, perhaps with the type in it, is lost; what a line has up to here is not.
    if (place == Place::top && !inside.fixes.empty()) track = std::move(inside);
    if (line.positions && timesOf(line) != nullptr) addLine(line, track);
    throw;
  }
  if (place == Place::top && type == "FeatureCollection") {
    track = std::move(inside);
  } else if (type == "Feature") {
    if (line.isLine) addLine(line, track);
  } else if (place == Place::top) {
    throw TrackFormatError("it is neither a feature nor a collection of them");
  }
}

/// A document whose texts can be told apart: its bytes are UTF-8, no control character stands in a
/// text, and one that is not closed is left out.
std::string withWholeTexts(platform::DataView bytes) {
  std::string text = platform::stringFromUTF8Repaired(bytes);
  std::optional<std::size_t> opened;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') {
      opened = opened ? std::nullopt : std::optional(i);
    } else if (opened && text[i] == '\\') {
      ++i;
    } else if (opened && static_cast<unsigned char>(text[i]) < 0x20) {
      text[i] = ' ';
    }
  }
  if (opened) text.resize(*opened);
  return text;
}

/// A known figure; unknown ones are negative.
JSON figure(double value) { return value >= 0 && value < 1e9 ? JSON(value) : JSON(); }

}  // namespace

void readGeoJSON(platform::DataView bytes, Track& track) {
  const auto read = [&track](platform::DataView document) {
    JSONReader json(document);
    readObject(json, Place::top, track);
    json.finish();
  };
  try {
    read(bytes);
  } catch (const platform::DecodingError&) {
    // Of a document that cannot even be divided into texts the reader gives nothing.
    if (!track.fixes.empty()) throw;
    const std::string document = withWholeTexts(bytes);
    try {
      read(platform::bytesOf(document));
    } catch (const platform::Error&) {
      // The first fault is the one to tell.
    }
    throw;
  }
}

std::string writeGeoJSON(const Track& track) {
  JSON::Array positions, times, rates, speeds, courses, horizontal, vertical;
  for (const TrackPoint& point : pointsOf(track)) {
    if (point.fix == nullptr) continue;
    const CLLocation& fix = *point.fix;
    JSON::Array position{fix.coordinate.longitude, fix.coordinate.latitude};
    if (hasAltitude(fix)) position.emplace_back(fix.altitude);
    positions.emplace_back(std::move(position));
    times.push_back(timeText(fix.timestamp));
    rates.push_back(point.heartRate ? figure(point.heartRate->beatsPerMinute) : JSON());
    speeds.push_back(figure(fix.speed));
    courses.push_back(figure(fix.course));
    horizontal.push_back(figure(fix.horizontalAccuracy));
    vertical.push_back(figure(fix.verticalAccuracy));
  }
  const auto dictionary = [](auto... members) {
    JSON::Dictionary out;
    (out.set(members.first, std::move(members.second)), ...);
    return JSON(std::move(out));
  };
  using Member = std::pair<std::string, JSON>;
  const JSON document = dictionary(
      Member{"type", "Feature"},
      Member{"geometry",
             dictionary(Member{"type", "LineString"}, Member{"coordinates", std::move(positions)})},
      Member{"properties",
             dictionary(Member{"name", track.name}, Member{"coordTimes", std::move(times)},
                        Member{"heartRates", std::move(rates)}, Member{"speeds", std::move(speeds)},
                        Member{"courses", std::move(courses)},
                        Member{"horizontalAccuracies", std::move(horizontal)},
                        Member{"verticalAccuracies", std::move(vertical)})});
  const platform::Data data = document.rawData();
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace ombrix::detail

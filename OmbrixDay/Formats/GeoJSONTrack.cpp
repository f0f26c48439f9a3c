// GeoJSON (RFC 7946): a feature whose line string has altitudes; the other figures stand in arrays
// of its properties, one item a position, as "coordTimes" does in other programs' files.

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <utility>

#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Formats/Detail/GeoJSONLine.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"

namespace ombrix::detail {
namespace {

using platform::JSON;

using platform::JSONReader;

/// What a feature says of its line, in the order of the document. Read in one pass: the document
/// itself is not kept, and what is kept has a limit.
struct Line {
  std::string type;  ///< Of the geometry.
  std::optional<std::vector<GeoJSONPosition>> positions;
  std::optional<std::vector<double>> times[3];  ///< Seconds since 1970, by the places they stand.
  GeoJSONFigures figures;
  std::vector<std::size_t> pieces;  ///< The positions at which those of a multi-line string end.
  std::string name, sport, notes;
  std::size_t unread = 0;  ///< Other properties.
};

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

template <class Item>
void add(std::vector<Item>& items, const Item& item) {
  if (items.size() >= kMostTrackPoints) {
    throw TrackFormatError("it holds more than five million points");
  }
  items.push_back(item);
}

/// The numbers or times of what comes, those of a multi-line string in arrays of their own; none of
/// what is no array. What is thrown leaves those before it, but no number at the very place: the
/// rest of it may be missing.
void readItems(JSONReader& json, double (*read)(JSONReader&), std::vector<double>& items,
               bool isInside = false) {
  if (!isInside) items.clear();
  if (json.peek() != '[') return json.skip();
  bool mayBeCut = false, isFirst = true, isNested = false;
  try {
    for (json.beginArray(); json.nextItem(); isFirst = false) {
      mayBeCut = false;
      const char first = json.peek();
      if (isFirst) isNested = first == '[' && !isInside;
      if (first == '[' && isNested) {
        readItems(json, read, items, true);
      } else if (first == '[') {
        add(items, kNone);
        json.skip();
      } else {
        add(items, read(json));
        mayBeCut = first != '[' && first != '"';
      }
    }
  } catch (...) {
    if (mayBeCut) items.pop_back();
    throw;
  }
}

/// The places of a line, or of the lines of a multi-line string, which stand one level deeper.
/// @param[out] pieces Where lists of places end, in those positions.
void readPositions(JSONReader& json, std::vector<GeoJSONPosition>& positions,
                   std::vector<std::size_t>& pieces, int level = 0) {
  constexpr int kDeepest = 2;
  GeoJSONPosition position;
  std::size_t index = 0;
  bool isList = level == 0;
  for (json.beginArray(); json.nextItem(); ++index) {
    if (json.peek() == '[' && level < kDeepest) {
      isList = true;
      readPositions(json, positions, pieces, level + 1);
    } else if (isList) {
      add(positions, {});
      json.skip();
    } else if (index < 3) {
      double* const numbers[] = {&position.longitude, &position.latitude, &position.altitude};
      *numbers[index] = readNumber(json);
    } else {
      json.skip();
    }
  }
  if (!isList) {
    add(positions, position);
  } else if (pieces.empty() || pieces.back() != positions.size()) {
    pieces.push_back(positions.size());
  }
}

void readGeometry(JSONReader& json, Line& line) {
  line.type.clear();
  line.positions.reset();
  line.pieces.clear();
  readMembers(json, [&](std::string_view key) {
    if (key == "type") {
      line.type = readText(json);
    } else if (key == "coordinates" && json.peek() == '[') {
      readPositions(json, line.positions.emplace(), line.pieces);
    } else {
      json.skip();
    }
  });
}

void readProperties(JSONReader& json, Line& line, bool isInner = false) {
  readMembers(json, [&](std::string_view key) {
    const auto* figure =
        std::ranges::find(kGeoJSONFigureNames, key, [](auto& name) { return name.first; });
    if (figure != std::end(kGeoJSONFigureNames)) {
      readItems(json, readNumber, line.figures[figure->second]);
    } else if (key == "coordTimes" || key == "times") {
      readItems(json, readTime, line.times[isInner ? 2 : key == "times" ? 1 : 0].emplace());
    } else if (isInner) {
      ++line.unread;
      json.skip();
    } else if (key == "name") {
      line.name = readText(json);
    } else if (key == "type" || key == "sport") {
      line.sport = readText(json);
    } else if (key == "desc" || key == "description") {
      line.notes = readText(json);
    } else if (key == "coordinateProperties") {
      readProperties(json, line, true);
    } else {
      line.unread += json.peek() != 'n';  // null
      json.skip();
    }
  });
}

const std::vector<double>* timesOf(const Line& line) {
  const auto* times = std::ranges::find_if(line.times, [](auto& list) { return list.has_value(); });
  return times == std::end(line.times) ? nullptr : &**times;
}

class DocumentReader {
 public:
  DocumentReader(platform::DataView bytes, Track& track) : json_(bytes), track_(track) {}

  /// @return what a line is without, whose points are missing for that; null if none is
  const char* read() {
    if (!readObject(true)) {
      throw TrackFormatError("it is neither a feature nor a collection of them");
    }
    json_.finish();
    return missing_;
  }

 private:
  /// Reads a feature, or at the top a collection of them, whose members may come in any order.
  /// Which it is say its members: the text of its type may be damaged.
  bool readObject(bool isTop) {
    Line line;
    bool isCollection = false, isFeature = false;
    const auto read = [&](std::string_view key) {
      if (key == "geometry") {
        isFeature = true;
        readGeometry(json_, line);
      } else if (key == "properties") {
        for (auto& times : line.times) times.reset();
        line.figures = {};
        line.name = line.sport = line.notes = {};
        line.unread = 0;
        readProperties(json_, line);
      } else if (key == "features" && isTop && json_.peek() == '[') {
        isCollection = true;
        track_ = {};
        for (json_.beginArray(); json_.nextItem();) readObject(false);
      } else {
        json_.skip();
      }
    };
    try {
      readMembers(json_, read);
    } catch (...) {
      // The rest is lost; what a line has up to here is not.
      if (line.positions && timesOf(line) != nullptr) add(line);
      throw;
    }
    if (!isCollection) add(line);
    return isCollection || isFeature;
  }

  /// Adds the points of a line, if it is one, to the track.
  void add(const Line& line) {
    constexpr std::string_view kOthers[] = {"Point", "MultiPoint", "Polygon", "MultiPolygon",
                                            "GeometryCollection"};
    if (std::ranges::find(kOthers, line.type) != std::end(kOthers)) {
      return passOver(track_, line.type.ends_with("Point") ? kWaypoints : kOtherDetails);
    }
    const auto* times = timesOf(line);
    if (!line.positions) {
      if (!line.type.empty() || times != nullptr) missing_ = "a line has no coordinates";
      return;
    }
    if (times == nullptr) {
      // Such as a route that was planned.
      missing_ = "its line has no times (\"coordTimes\")";
      passOver(track_, kRoutes);
      track_.skipped += line.positions->size();
      return;
    }
    if (times->size() != line.positions->size()) {
      // Which one is missing nobody knows: a wrong time is worse than none.
      missing_ = "a line has not as many times as places";
      track_.skipped += line.positions->size();
      return;
    }
    std::size_t unread = line.unread;
    for (const auto& list : line.figures) unread += !list.empty() && list.size() != times->size();
    passOver(track_, kOtherDetails, unread);
    if (!track_.fixes.empty()) passOver(track_, kDivision);
    if (track_.name.empty()) track_.name = line.name;
    if (track_.sport.empty()) track_.sport = line.sport;
    if (track_.notes.empty()) track_.notes = line.notes;
    beginSegment(track_);
    auto piece = line.pieces.begin();
    for (std::size_t i = 0; i < line.positions->size(); ++i) {
      for (; piece != line.pieces.end() && *piece <= i; ++piece) beginSegment(track_);
      std::array<double, kGeoJSONFigures> figures;
      for (std::size_t each = 0; each < figures.size(); ++each) {
        const auto& all = line.figures[each];
        figures[each] = all.size() == times->size() ? all[i] : kNone;
      }
      keep(track_, (*line.positions)[i], i < times->size() ? (*times)[i] : kNone, figures);
    }
  }

  JSONReader json_;
  Track& track_;
  const char* missing_ = nullptr;
};

/// A known figure; unknown ones are negative.
JSON figure(double value) { return value >= 0 && value < 1e9 ? JSON(value) : JSON(); }

}  // namespace

void keep(Track& track, const GeoJSONPosition& position, double secondsSince1970,
          std::span<const double, kGeoJSONFigures> figures) {
  const auto known = [&](GeoJSONFigure figure) {
    return std::isnan(figures[figure]) ? -1 : figures[figure];
  };
  CLLocation fix;
  fix.coordinate = {position.latitude, position.longitude};
  fix.altitude = position.altitude;
  fix.speed = known(kSpeed);
  fix.course = known(kCourse);
  fix.horizontalAccuracy = known(kHorizontalAccuracy);
  fix.verticalAccuracy = known(kVerticalAccuracy);
  SensorValues sensors;
  std::ranges::copy(figures.first<kSensors>(), sensors.begin());
  keep(track, fix, sensors,
       std::isnan(secondsSince1970) ? std::nullopt
                                    : std::optional(platform::dateSince1970(secondsSince1970)));
}

void readGeoJSON(platform::DataView bytes, Track& track) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  if (platform::textOf(bytes).starts_with(kMark)) bytes = bytes.subspan(kMark.size());
  std::exception_ptr fault;
  bool isDamaged = true;
  try {
    const char* const missing = DocumentReader(bytes, track).read();
    if (missing == nullptr) return;
    isDamaged = false;
    fault = std::make_exception_ptr(TrackFormatError(missing));
  } catch (const platform::Error&) {
    fault = std::current_exception();
  }
  const auto points = [](const Track& read) { return read.fixes.size() + read.heartRates.size(); };
  if (points(track) < kMostTrackPoints) {
    Track found;
    found.name = track.name;
    found.sport = track.sport;
    found.notes = track.notes;
    readDamagedGeoJSON(platform::textOf(bytes), found);
    const bool isMore = points(found) > points(track);
    if (isMore || (isDamaged && points(found) == points(track))) {
      track = std::move(found);
      isDamaged |= isMore;
    }
  }
  // A route beside a track is no damage.
  if (isDamaged || points(track) == 0) std::rethrow_exception(fault);
}

std::string writeGeoJSON(const Track& track) {
  // Positions, times and figures of each piece of the line.
  struct Lists {
    JSON::Array positions, times, figures[kGeoJSONFigures];
  };
  std::vector<Lists> pieces(1);
  std::array<bool, kGeoJSONFigures> isTold{};
  PointSequence points(track);
  for (TrackPoint point; points.next(point);) {
    if (point.fix == nullptr) continue;
    if (point.beginsSegment) pieces.emplace_back();
    Lists& piece = pieces.back();
    const CLLocation& fix = *point.fix;
    JSON::Array position{fix.coordinate.longitude, fix.coordinate.latitude};
    if (hasAltitude(fix)) position.emplace_back(fix.altitude);
    piece.positions.emplace_back(std::move(position));
    piece.times.push_back(timeText(fix.timestamp));
    for (std::size_t sensor = 0; sensor < kLoneAltitude; ++sensor) {
      const double value = point.sensors[sensor];
      const bool isThere = isSensorValue(sensor, value);
      isTold[sensor] |= isThere;
      piece.figures[sensor].push_back(isThere ? JSON(value) : JSON());
    }
    piece.figures[kSpeed].push_back(figure(fix.speed));
    piece.figures[kCourse].push_back(figure(fix.course));
    piece.figures[kHorizontalAccuracy].push_back(figure(fix.horizontalAccuracy));
    piece.figures[kVerticalAccuracy].push_back(figure(fix.verticalAccuracy));
  }
  for (std::size_t i = kSensors; i < kGeoJSONFigures; ++i) isTold[i] = true;

  // One list for a line, and one of lists for a line in pieces.
  const auto joined = [&](const auto& listOf) {
    if (pieces.size() == 1) return JSON(std::move(listOf(pieces.front())));
    JSON::Array lists;
    for (Lists& piece : pieces) lists.emplace_back(std::move(listOf(piece)));
    return JSON(std::move(lists));
  };
  JSON::Dictionary geometry, properties, feature;
  geometry.set("type", pieces.size() == 1 ? "LineString" : "MultiLineString");
  geometry.set("coordinates", joined([](Lists& piece) -> auto& { return piece.positions; }));
  properties.set("name", track.name);
  if (!track.sport.empty()) properties.set("type", track.sport);
  if (!track.notes.empty()) properties.set("desc", track.notes);
  properties.set("coordTimes", joined([](Lists& piece) -> auto& { return piece.times; }));
  for (const auto& [name, list] : kGeoJSONFigureNames) {
    if (!std::exchange(isTold[list], false)) continue;
    properties.set(std::string(name),
                   joined([each = list](Lists& piece) -> auto& { return piece.figures[each]; }));
  }
  feature.set("type", "Feature");
  feature.set("geometry", JSON(std::move(geometry)));
  feature.set("properties", JSON(std::move(properties)));
  const platform::Data data = JSON(std::move(feature)).rawData();
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace ombrix::detail

// GeoJSON (RFC 7946): a feature whose line string has altitudes; the other figures stand in arrays
// of its properties, one item a position, as "coordTimes" does in other programs' files.

#include <fmt/format.h>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"

namespace ombrix::detail {
namespace {

using platform::JSON;

double numberAt(const JSON& array, std::size_t index, double otherwise) {
  return array[index].real().value_or(otherwise);
}

/// Reads one line with its properties.
void readLine(const JSON& coordinates, const JSON& properties, Track& track) {
  const JSON::Array* positions = coordinates.array();
  if (positions == nullptr) throw TrackFormatError("a line has no coordinates");
  const JSON* times = properties.find("coordTimes");
  if (times == nullptr) times = properties.find("times");
  if (times == nullptr) times = properties["coordinateProperties"].find("times");
  if (times == nullptr) throw TrackFormatError("its line has no times (\"coordTimes\")");
  if (track.name.empty()) track.name = properties["name"].stringValue();
  for (std::size_t i = 0; i < positions->size(); ++i) {
    const JSON& position = (*positions)[i];
    CLLocation fix;
    const auto longitude = position[0].real(), latitude = position[1].real();
    if (latitude && longitude) fix.coordinate = {*latitude, *longitude};
    fix.altitude = numberAt(position, 2, 0);
    fix.speed = numberAt(properties["speeds"], i, -1);
    fix.course = numberAt(properties["courses"], i, -1);
    fix.horizontalAccuracy = numberAt(properties["horizontalAccuracies"], i, -1);
    fix.verticalAccuracy = numberAt(properties["verticalAccuracies"], i, -1);
    const JSON& time = (*times)[i];
    keep(track, latitude && longitude ? &fix : nullptr, properties["heartRates"][i].real(),
         time.string() != nullptr ? timeFromText(*time.string()) : std::nullopt);
  }
}

void readObject(const JSON& object, Track& track) {
  const std::string type = object["type"].stringValue();
  if (type == "FeatureCollection") {
    if (const JSON::Array* features = object["features"].array()) {
      for (const JSON& feature : *features) {
        if (feature["type"].stringValue() == "Feature") readObject(feature, track);
      }
    }
    return;
  }
  if (type != "Feature") throw TrackFormatError("it is neither a feature nor a collection of them");
  const JSON& geometry = object["geometry"];
  if (geometry["type"].stringValue() == "LineString") {
    readLine(geometry["coordinates"], object["properties"], track);
  }
}

/// A known figure; unknown ones are negative.
JSON figure(double value) { return value >= 0 && value < 1e9 ? JSON(value) : JSON(); }

}  // namespace

Track readGeoJSON(platform::DataView bytes) {
  Track track;
  readObject(JSON::parse(bytes), track);
  return track;
}

std::string writeGeoJSON(const Track& track) {
  JSON::Array positions, times, rates, speeds, courses, horizontal, vertical;
  for (const TrackPoint& point : pointsOf(track)) {
    if (point.fix == nullptr) continue;
    const CLLocation& fix = *point.fix;
    positions.push_back(
        JSON::Array{fix.coordinate.longitude, fix.coordinate.latitude, fix.altitude});
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

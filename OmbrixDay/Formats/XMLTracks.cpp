// GPX 1.1 (topografix.com/GPX/1/1, with the track point extension, version 2) and TCX (Training
// Center Database, version 2, with the activity extension). Figures that neither has a place for,
// accuracies and in TCX the course, stand in elements of our own among the extensions.

#include <fmt/format.h>

#include <iterator>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixPlatform/Coding/XMLReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace ombrix::detail {
namespace {

using platform::XMLAttribute;

constexpr std::string_view kOwnNamespace = "urn:ombrix:track:1";

/// Reads both kinds: the names of their elements do not collide.
class PointReader : public platform::XMLHandler {
 public:
  PointReader(std::string_view root, std::string_view point) : root_(root), point_(point) {}

  void beginElement(std::string_view name, std::span<const XMLAttribute> attributes) override {
    if (depth_++ == 0 && name != root_) {
      throw TrackFormatError(fmt::format("its root element is \"{}\"", name.substr(0, 40)));
    }
    if (depth_ == 2) section_ = name;
    if (name == point_ && !isPoint_) {
      begin(attributes);
    } else if (name == "HeartRateBpm") {
      isHeartRate_ = true;
    } else if (name == "Lap") {
      for (const XMLAttribute& attribute : attributes) {
        if (attribute.name != "StartTime" || track_.laps.size() >= kMostTrackPoints) continue;
        if (const auto time = timeFromText(attribute.value)) track_.laps.push_back(*time);
      }
    }
  }

  void endElement(std::string_view name, std::string_view text) override {
    --depth_;
    if (isPoint_) {
      depth_ < pointDepth_ ? end() : readFigure(name, text);
    } else if (name == "name" && depth_ == 2) {
      // Waypoints and authors have names too; the track's own goes before the file's.
      if (section_ == "metadata" || (section_ == "trk" && !hasTrackName_)) track_.name = text;
      if (section_ == "trk") hasTrackName_ = true;
    }
    if (name == "HeartRateBpm") isHeartRate_ = false;
  }

  Track take() { return std::move(track_); }

 private:
  void begin(std::span<const XMLAttribute> attributes) {
    isPoint_ = true;
    pointDepth_ = depth_;
    fix_ = {};
    time_ = {};
    latitude_ = longitude_ = heartRate_ = {};
    for (const XMLAttribute& attribute : attributes) {
      if (attribute.name == "lat") latitude_ = platform::doubleFromText(attribute.value);
      if (attribute.name == "lon") longitude_ = platform::doubleFromText(attribute.value);
    }
  }

  void end() {
    isPoint_ = false;
    const bool hasPlace = latitude_ && longitude_;
    if (hasPlace) fix_.coordinate = {*latitude_, *longitude_};
    keep(track_, hasPlace ? &fix_ : nullptr, heartRate_, time_);
  }

  void readFigure(std::string_view name, std::string_view text) {
    const bool isDirect = depth_ == pointDepth_;  // Extensions may hold anything.
    if (isDirect && (name == "time" || name == "Time")) {
      time_ = timeFromText(text);
      return;
    }
    const std::optional<double> number = platform::doubleFromText(text);
    if (!number) return;
    if (isDirect && (name == "ele" || name == "AltitudeMeters")) fix_.altitude = *number;
    if (name == "speed" || name == "Speed") fix_.speed = *number;
    if (name == "course") fix_.course = *number;
    if (name == "horizontalAccuracy") fix_.horizontalAccuracy = *number;
    if (name == "verticalAccuracy") fix_.verticalAccuracy = *number;
    if (name == "LatitudeDegrees") latitude_ = number;
    if (name == "LongitudeDegrees") longitude_ = number;
    if (name == "hr" || (name == "Value" && isHeartRate_)) heartRate_ = number;
  }

  std::string_view root_, point_;
  Track track_;
  CLLocation fix_;
  std::optional<platform::Date> time_;
  std::optional<double> latitude_, longitude_, heartRate_;
  std::string section_;  ///< The element below the root.
  std::size_t depth_ = 0, pointDepth_ = 0;
  bool hasTrackName_ = false, isPoint_ = false, isHeartRate_ = false;
};

Track readPoints(platform::DataView bytes, std::string_view root, std::string_view point) {
  PointReader reader(root, point);
  platform::readXML(bytes, reader);
  return reader.take();
}

std::string escaped(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const std::string_view character = text.substr(i, 3);
    if (character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF") {
      i += 2;  // U+FFFE and U+FFFF may not stand in XML.
    } else if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n') {
      out += c;
    }
  }
  return out;
}

/// Adds an element with a number, unless the number is unknown.
void addFigure(std::string& out, std::string_view name, double value, int decimals) {
  if (!(value >= 0 && value < 1e9)) return;
  fmt::format_to(std::back_inserter(out), "<{0}>{1}</{0}>", name, decimalText(value, decimals));
}

/// The figures that only our own elements hold.
std::string ownFigures(const CLLocation& fix) {
  std::string out;
  addFigure(out, "o:horizontalAccuracy", fix.horizontalAccuracy, 3);
  addFigure(out, "o:verticalAccuracy", fix.verticalAccuracy, 3);
  return out;
}

void addExtensions(std::string& out, std::string_view figures) {
  if (!figures.empty())
    fmt::format_to(std::back_inserter(out), "<{0}>{1}</{0}>", "extensions", figures);
}

}  // namespace

Track readGPX(platform::DataView bytes) { return readPoints(bytes, "gpx", "trkpt"); }

Track readTCX(platform::DataView bytes) {
  return readPoints(bytes, "TrainingCenterDatabase", "Trackpoint");
}

std::string writeGPX(const Track& track) {
  std::string out = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<gpx version=\"1.1\" creator=\"Ombrix\" xmlns=\"http://www.topografix.com/GPX/1/1\" "
      "xmlns:gpxtpx=\"http://www.garmin.com/xmlschemas/TrackPointExtension/v2\" xmlns:o=\"{}\">\n"
      "<trk>",
      kOwnNamespace);
  if (!track.name.empty()) out += "<name>" + escaped(track.name) + "</name>";
  out += "<trkseg>\n";
  for (const TrackPoint& point : pointsOf(track)) {
    if (point.fix == nullptr) continue;  // A point of this format has a place.
    const CLLocation& fix = *point.fix;
    out += "<trkpt lat=\"" + decimalText(fix.coordinate.latitude, 9) + "\" lon=\"" +
           decimalText(fix.coordinate.longitude, 9) + "\"><ele>" + decimalText(fix.altitude, 6) +
           "</ele><time>" + timeText(fix.timestamp) + "</time>";
    std::string figures;
    if (point.heartRate) addFigure(figures, "gpxtpx:hr", point.heartRate->beatsPerMinute, 3);
    addFigure(figures, "gpxtpx:speed", fix.speed, 6);
    addFigure(figures, "gpxtpx:course", fix.course, 6);
    if (!figures.empty()) {
      figures = "<gpxtpx:TrackPointExtension>" + figures + "</gpxtpx:TrackPointExtension>";
    }
    addExtensions(out, figures + ownFigures(fix));
    out += "</trkpt>\n";
  }
  return out + "</trkseg></trk>\n</gpx>\n";
}

std::string writeTCX(const Track& track) {
  const std::vector<TrackPoint> points = pointsOf(track);
  std::vector<platform::Date> laps;
  for (const platform::Date lap : track.laps) {
    if (!timeText(lap).empty() && (laps.empty() || lap > laps.back())) laps.push_back(lap);
  }
  if (laps.empty() && !points.empty()) laps.push_back(points.front().time());
  std::string out = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<TrainingCenterDatabase "
      "xmlns=\"http://www.garmin.com/xmlschemas/TrainingCenterDatabase/v2\" "
      "xmlns:x=\"http://www.garmin.com/xmlschemas/ActivityExtension/v2\" xmlns:o=\"{}\">\n",
      kOwnNamespace);
  if (laps.empty()) return out + "</TrainingCenterDatabase>\n";
  out += "<Activities><Activity Sport=\"Other\"><Id>" + timeText(laps.front()) + "</Id>\n";
  std::size_t next = 0;
  for (std::size_t lap = 0; lap < laps.size(); ++lap) {
    std::string trackpoints;
    double meters = 0;
    const CLLocation* last = nullptr;
    platform::Date end = laps[lap];
    const bool isLast = lap + 1 == laps.size();
    for (; next < points.size() && (isLast || points[next].time() < laps[lap + 1]); ++next) {
      const TrackPoint& point = points[next];
      end = std::max(end, point.time());
      trackpoints += "<Trackpoint><Time>" + timeText(point.time()) + "</Time>";
      if (const CLLocation* fix = point.fix) {
        if (last != nullptr) meters += last->distanceFrom(*fix);
        last = fix;
        trackpoints += "<Position><LatitudeDegrees>" + decimalText(fix->coordinate.latitude, 9) +
                       "</LatitudeDegrees><LongitudeDegrees>" +
                       decimalText(fix->coordinate.longitude, 9) +
                       "</LongitudeDegrees></Position><AltitudeMeters>" +
                       decimalText(fix->altitude, 6) + "</AltitudeMeters>";
      }
      if (point.heartRate) {
        std::string rate;
        addFigure(rate, "Value", point.heartRate->beatsPerMinute, 3);
        if (!rate.empty()) trackpoints += "<HeartRateBpm>" + rate + "</HeartRateBpm>";
      }
      if (const CLLocation* fix = point.fix) {
        std::string figures;
        addFigure(figures, "x:Speed", fix->speed, 6);
        if (!figures.empty()) figures = "<x:TPX>" + figures + "</x:TPX>";
        addFigure(figures, "o:course", fix->course, 6);
        figures += ownFigures(*fix);
        if (!figures.empty()) trackpoints += "<Extensions>" + figures + "</Extensions>";
      }
      trackpoints += "</Trackpoint>\n";
    }
    out += "<Lap StartTime=\"" + timeText(laps[lap]) + "\"><TotalTimeSeconds>" +
           decimalText((end - laps[lap]).count(), 3) + "</TotalTimeSeconds><DistanceMeters>" +
           decimalText(meters, 2) +
           "</DistanceMeters><Calories>0</Calories><Intensity>Active</Intensity>"
           "<TriggerMethod>Manual</TriggerMethod>";
    if (!trackpoints.empty()) out += "<Track>\n" + trackpoints + "</Track>";
    out += "</Lap>\n";
  }
  return out + "</Activity></Activities>\n</TrainingCenterDatabase>\n";
}

}  // namespace ombrix::detail

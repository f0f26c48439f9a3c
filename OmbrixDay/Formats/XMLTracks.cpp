// GPX 1.1 (topografix.com/GPX/1/1, with the track point extension, version 2) and TCX (Training
// Center Database, version 2, with the activity extension). Figures that neither has a place for,
// accuracies and in TCX the course, stand in elements of our own among the extensions.

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>
#include <string>

#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixPlatform/Coding/XMLReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Text/UTF16.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix::detail {
namespace {

using platform::XMLAttribute;

constexpr std::string_view kOwnNamespace = "urn:ombrix:track:1";

/// Reads both kinds: the names of their elements do not collide.
class PointReader : public platform::XMLHandler {
 public:
  PointReader(std::string_view root, std::string_view point, Track& track)
      : root_(root), point_(point), track_(track) {}

  void beginElement(std::string_view name, std::span<const XMLAttribute> attributes) override {
    if (depth_++ == 0 && name != root_) {
      throw platform::XMLError(fmt::format("its root element is \"{}\"", name.substr(0, 40)));
    }
    if (depth_ == 2) section_ = name;
    if (name == point_) {
      if (isPoint_) throw platform::XMLError("a point begins inside a point");
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

  /// Begins a piece of the document; of a point that was not read to its end, what it has counts.
  void restart() {
    if (isPoint_) end();
    depth_ = 0;
    isPoint_ = isHeartRate_ = false;
  }

 private:
  void begin(std::span<const XMLAttribute> attributes) {
    isPoint_ = true;
    pointDepth_ = depth_;
    fix_ = {.altitude = kUnknown};
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

  static constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

  std::string_view root_, point_;
  Track& track_;
  CLLocation fix_;
  std::optional<platform::Date> time_;
  std::optional<double> latitude_, longitude_, heartRate_;
  std::string section_;  ///< The element below the root.
  std::size_t depth_ = 0, pointDepth_ = 0;
  bool hasTrackName_ = false, isPoint_ = false, isHeartRate_ = false;
};

/// Where the next element of a name begins behind the first character, with or without a prefix.
std::size_t nextElement(std::string_view text, std::string_view name) {
  constexpr std::size_t kMostPrefix = 32;
  for (std::size_t at = 1; (at = text.find(name, at)) != text.npos; at += name.size()) {
    const std::size_t from = at - std::min(at - 1, kMostPrefix);
    const std::size_t begin = text.substr(from, at - from).rfind('<');
    if (begin == text.npos) continue;
    const std::string_view prefix = text.substr(from + begin + 1, at - from - begin - 1);
    const bool isPrefix =
        prefix.empty() || prefix.find_first_of(": \t\r\n/!?") == prefix.size() - 1;
    const std::string_view behind = text.substr(at + name.size(), 1);
    if (isPrefix && behind.find_first_of("> \t\r\n/") == 0) return from + begin;
  }
  return text.npos;
}

/// The declaration of a document's encoding, in which its pieces are to be read, too; empty for
/// UTF-8. In place of one that the parser does not know stands one that takes any byte.
std::string declarationOf(platform::DataView bytes) {
  constexpr std::size_t kMostBytes = 200;
  constexpr std::string_view kMark = "\xEF\xBB\xBF", kLatin = "ISO-8859-1";
  constexpr std::string_view kNames[] = {kLatin, "US-ASCII", "UTF-8"};
  std::string_view text = platform::textOf(bytes).substr(0, kMostBytes);
  if (text.starts_with(kMark)) text.remove_prefix(kMark.size());
  const std::size_t end = text.find("?>");
  if (!text.starts_with("<?") || end == text.npos) return {};
  const std::string_view declaration = text.substr(0, end);
  for (const std::string_view name : kNames) {
    const auto found = std::ranges::search(declaration, name, [](char a, char b) {
      return (a >= 'a' && a <= 'z' ? static_cast<char>(a - ('a' - 'A')) : a) == b;
    });
    if (!found.empty()) return fmt::format("<?xml version=\"1.0\" encoding=\"{}\"?>", name);
  }
  if (platform::stringFromUTF8(bytes)) return {};
  return fmt::format("<?xml version=\"1.0\" encoding=\"{}\"?>", kLatin);
}

/// A document in UTF-16, which begins with a mark, in UTF-8 and without its declaration; nothing
/// for any other.
std::optional<std::string> utf8FromUTF16(platform::DataView bytes) {
  const std::string_view text = platform::textOf(bytes);
  const bool isLittle = text.starts_with("\xFF\xFE");
  if (!isLittle && !text.starts_with("\xFE\xFF")) return std::nullopt;
  std::u16string units;
  units.reserve(text.size() / 2);
  for (std::size_t i = 2; i + 1 < text.size(); i += 2) {
    const auto first = static_cast<unsigned char>(text[i]);
    const auto second = static_cast<unsigned char>(text[i + 1]);
    units += static_cast<char16_t>(isLittle ? second << 8 | first : first << 8 | second);
  }
  std::string utf8 = platform::utf8From(units);
  if (utf8.starts_with("<?xml")) {
    const std::size_t end = utf8.find("?>");
    if (end != utf8.npos) std::fill_n(utf8.begin(), end + 2, ' ');
  }
  return utf8;
}

/// Reads all points. A fault costs the rest of the point in which it stands: reading goes on at the
/// next one.
/// @throws XMLError the first fault, once all points are read
void readPoints(platform::DataView bytes, std::string_view root, std::string_view point,
                Track& track) {
  constexpr std::size_t kMostFaults = 10'000;  // Each makes a parser.
  constexpr std::size_t kMostUnfinished = 16;  // Each has up to 1 MiB read in vain.
  const std::optional<std::string> utf8 = utf8FromUTF16(bytes);
  if (utf8) bytes = platform::bytesOf(*utf8);
  const platform::DataView whole = bytes;
  PointReader reader(root, point, track);
  std::string before;
  std::optional<std::string> declaration;
  std::optional<platform::XMLError> first;
  std::size_t unfinished = 0;
  for (std::size_t faults = 0; faults < kMostFaults; ++faults) {
    try {
      platform::readXML(bytes, reader, before);
      break;
    } catch (const platform::XMLError& error) {
      if (!first) first = error;
      if (error.isUnfinished() && ++unfinished == kMostUnfinished) break;
      // With the character before it, behind which a point may begin.
      const std::size_t offset = std::min(error.offset(), bytes.size());
      bytes = bytes.subspan(offset - std::min<std::size_t>(offset, 1));
    }
    const std::size_t next = nextElement(platform::textOf(bytes), point);
    if (next == std::string_view::npos) break;
    bytes = bytes.subspan(next);
    if (!declaration) declaration = declarationOf(whole);
    before = fmt::format("{}<{}>", *declaration, root);
    reader.restart();
  }
  if (first) throw platform::XMLError(*first);
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

void readGPX(platform::DataView bytes, Track& track) { readPoints(bytes, "gpx", "trkpt", track); }

void readTCX(platform::DataView bytes, Track& track) {
  readPoints(bytes, "TrainingCenterDatabase", "Trackpoint", track);
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
           decimalText(fix.coordinate.longitude, 9) + "\">";
    if (hasAltitude(fix)) out += "<ele>" + decimalText(fix.altitude, 6) + "</ele>";
    out += "<time>" + timeText(fix.timestamp) + "</time>";
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
                       decimalText(fix->coordinate.longitude, 9) + "</LongitudeDegrees></Position>";
        if (hasAltitude(*fix)) {
          trackpoints += "<AltitudeMeters>" + decimalText(fix->altitude, 6) + "</AltitudeMeters>";
        }
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

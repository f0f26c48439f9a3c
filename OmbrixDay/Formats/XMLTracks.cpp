// Reads GPX 1.1 (topografix.com/GPX/1/1, with the track point extension, version 2) and TCX
// (Training Center Database, version 2, with the activity extension). XMLTrackWriters.cpp writes
// them.

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixDay/Formats/Detail/XMLWords.hpp"
#include "OmbrixPlatform/Coding/XMLReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Text/UTF16.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix::detail {
namespace {

using platform::XMLAttribute;

/// What a kind of document is made of.
struct Elements {
  std::string_view root, point;
  std::span<const std::string_view> beginnings;  ///< Of what holds points, laps and segments.
};

/// Reads both kinds: the names of their elements do not collide.
class PointReader : public platform::XMLHandler {
 public:
  PointReader(const Elements& elements, Track& track) : elements_(elements), track_(track) {}

  void beginElement(std::string_view name, std::span<const XMLAttribute> attributes) override {
    if (depth_++ == 0 && name != elements_.root) {
      throw platform::XMLError(fmt::format("its root element is \"{}\"", name.substr(0, 40)));
    }
    if (depth_ == 2 && !isPiece_) section_ = name;
    if (passedDepth_ > 0) return;
    if (!isPoint_ && passOver(name)) return;
    if (name == elements_.point) {
      if (isPoint_) throw platform::XMLError("a point begins inside a point");
      begin(attributes);
    } else if (name.ends_with("HeartRateBpm")) {
      heartRate_ = name == "HeartRateBpm"          ? HeartRateOf::point
                   : name == "AverageHeartRateBpm" ? HeartRateOf::lapOnAverage
                                                   : HeartRateOf::lapAtMost;
    } else if (isPoint_) {
      return;  // Extensions may hold anything.
    } else if (name == "Lap") {
      beginLap(attributes);
    } else if (name == "trkseg" || name == "break" || (name == "Track" && tracks_++ > 0)) {
      beginSegment(track_);
    } else if (name == "link") {
      detail::passOver(track_, kOtherDetails);
    } else if (name == "trk") {
      if (trks_++ > 0) detail::passOver(track_, kDivision);
    } else if (name == "Activity") {
      if (trks_++ > 0) detail::passOver(track_, kDivision);
      beginSegment(track_);
      if (track_.sport.empty()) readSport(attributes);
    }
  }

  void endElement(std::string_view name, std::string_view text) override {
    --depth_;
    if (passedDepth_ > 0) {
      if (depth_ < passedDepth_) passedDepth_ = 0;
      return;
    }
    bool isRead = true;
    if (isPoint_) {
      depth_ < pointDepth_ ? end() : void(isRead = readFigure(name, text));
    } else if (hasLap_) {
      name == "Lap" ? endLap() : void(isRead = readTotal(name, text));
    } else {
      isRead = readText(name, text);
    }
    if (!isRead && !text.empty() && !isOfTheFile(name)) detail::passOver(track_, kOtherDetails);
    if (name.ends_with("HeartRateBpm")) heartRate_ = HeartRateOf::none;
  }

  /// Begins a piece of the document; of a point that was not read to its end, what it has counts.
  void restart() {
    if (isPoint_) end();
    finish();
    depth_ = 0;
    tracks_ = 1;  // What begins next is not the first one of its lap.
    isPoint_ = false;
    passedDepth_ = 0;
    isPiece_ = true;
    heartRate_ = HeartRateOf::none;
  }

  /// Keeps a lap that was not read to its end.
  void finish() {
    if (hasLap_) endLap();
  }

 private:
  /// Whose beats the next number is.
  enum class HeartRateOf : std::uint8_t { none, point, lapOnAverage, lapAtMost };

  /// Whether an element is one of those that are no part of a recording, and are counted only.
  bool passOver(std::string_view name) {
    constexpr std::pair<std::string_view, std::string_view> kPassed[] = {
        {"wpt", kWaypoints}, {"rte", kRoutes}, {"CoursePoint", kWaypoints}};
    for (const auto& [element, what] : kPassed) {
      if (name != element) continue;
      detail::passOver(track_, what);
      passedDepth_ = depth_;
      return true;
    }
    return false;
  }

  /// Whether an element is about the file, not the recording.
  bool isOfTheFile(std::string_view name) const {
    const bool isHead = depth_ == 1 || (depth_ == 2 && section_ == "metadata");
    return (name == "time" && isHead) || name == "Id" || name == "SensorState";
  }

  void begin(std::span<const XMLAttribute> attributes) {
    isPoint_ = true;
    pointDepth_ = depth_;
    fix_ = {.altitude = kNone};
    time_ = {};
    latitude_ = longitude_ = {};
    sensors_ = kNoSensorValues;
    for (const XMLAttribute& attribute : attributes) {
      if (attribute.name == "lat") latitude_ = platform::doubleFromText(attribute.value);
      if (attribute.name == "lon") longitude_ = platform::doubleFromText(attribute.value);
    }
  }

  void end() {
    isPoint_ = false;
    fix_.coordinate = {latitude_.value_or(kNone), longitude_.value_or(kNone)};
    keep(track_, fix_, sensors_, time_);
  }

  /// @return whether the track has a place for it
  bool readFigure(std::string_view name, std::string_view text) {
    const bool isDirect = depth_ == pointDepth_;  // Extensions may hold anything.
    if (isDirect && (name == "time" || name == "Time")) {
      time_ = timeFromText(text);
      return true;
    }
    const std::optional<double> number = platform::doubleFromText(text);
    if (!number) return false;
    bool isRead = true;
    if (isDirect && (name == "ele" || name == "AltitudeMeters")) {
      fix_.altitude = *number;
    } else if (name == "speed" || name == "Speed") {
      fix_.speed = *number;
    } else if (name == "course") {
      fix_.course = *number;
    } else if (name == "horizontalAccuracy") {
      fix_.horizontalAccuracy = *number;
    } else if (name == "verticalAccuracy") {
      fix_.verticalAccuracy = *number;
    } else if (name == "LatitudeDegrees") {
      latitude_ = number;
    } else if (name == "LongitudeDegrees") {
      longitude_ = number;
    } else if (name == "Value" && heartRate_ == HeartRateOf::point) {
      sensors_[kHeartRate] = *number;
    } else {
      isRead = false;
    }
    for (const auto& [element, sensor] : kSensorElements) {
      if (name != element) continue;
      sensors_[sensor] = *number;
      isRead = true;
    }
    return isRead;
  }

  void beginLap(std::span<const XMLAttribute> attributes) {
    tracks_ = 0;
    hasLap_ = false;
    for (const XMLAttribute& attribute : attributes) {
      const auto time =
          attribute.name == "StartTime" ? timeFromText(attribute.value) : std::nullopt;
      if (!time) continue;
      hasLap_ = true;
      lap_ = {.begin = *time};
    }
  }

  void endLap() {
    hasLap_ = false;
    keep(track_, lap_);
  }

  /// @return whether the track has a place for it
  bool readTotal(std::string_view name, std::string_view text) {
    if (name == "Notes") lap_.notes = text;
    if (name == "Intensity") lap_.isRest = text == kRest;
    if (name == "Notes" || name == "Intensity") return true;
    if (name == "TriggerMethod") {
      const auto* word = std::ranges::find(kLapTriggers, text);
      if (word == std::end(kLapTriggers)) return false;
      lap_.trigger = static_cast<LapTrigger>(word - std::begin(kLapTriggers));
      return true;
    }
    const std::optional<double> number = platform::doubleFromText(text);
    if (!number || !isSensorValue(kDistance, *number)) return false;
    if (name == "Value" && heartRate_ > HeartRateOf::point) {
      (heartRate_ == HeartRateOf::lapAtMost ? lap_.maxHeartRate : lap_.averageHeartRate) = *number;
      return true;
    }
    for (const auto& [element, total] : kLapElements) {
      if (name != element) continue;
      lap_.*total = *number;
      return true;
    }
    return false;
  }

  /// Takes the first text that comes for a field.
  /// @return whether the track holds it now
  static bool take(std::string& field, std::string_view text) {
    if (field.empty()) field = text;
    return field == text;
  }

  /// What stands beside points and laps.
  /// @return whether the track has a place for it
  bool readText(std::string_view name, std::string_view text) {
    if (section_ == "Activities") {
      // Others may stand deeper, as that of the device.
      if (name == "Notes") return take(track_.notes, text);
      if (name == "name") return take(track_.name, text);
      if (name == "sport") return take(track_.sport, text);
    } else if (depth_ == 2 && section_ == "trk") {
      if (name == "type") return take(track_.sport, text);
      if (name == "desc") return take(track_.notes, text);
      if (name != "name") return false;
      if (std::exchange(hasTrackName_, true)) return track_.name == text;
      const bool isFiles = track_.name.empty() || track_.name == text;
      track_.name = text;  // It goes before the file's.
      return isFiles;
    } else if (depth_ == 2 && section_ == "metadata") {
      // Waypoints and authors have names too.
      if (name == "name") return take(track_.name, text);
    }
    return false;
  }

  void readSport(std::span<const XMLAttribute> attributes) {
    for (const XMLAttribute& attribute : attributes) {
      if (attribute.name != "Sport") continue;
      for (const auto& [word, sport] : kSports) {
        if (attribute.value == word) track_.sport = sport;
      }
    }
  }

  const Elements& elements_;
  Track& track_;
  CLLocation fix_;
  std::optional<platform::Date> time_;
  std::optional<double> latitude_, longitude_;
  SensorValues sensors_ = kNoSensorValues;
  Lap lap_;
  std::string section_;  ///< The element below the root.
  std::size_t depth_ = 0, pointDepth_ = 0;
  std::size_t passedDepth_ = 0;  ///< Of the element that is passed over; 0 for none.
  std::size_t trks_ = 0;         ///< Tracks or activities that have begun.
  std::size_t tracks_ = 0;       ///< Begun in this lap.
  HeartRateOf heartRate_ = HeartRateOf::none;
  bool hasTrackName_ = false, isPoint_ = false, hasLap_ = false;
  bool isPiece_ = false;  ///< The elements around it are not there.
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

/// Where reading goes on behind a fault: at the next point, or at the lap or segment before it.
std::size_t nextBeginning(std::string_view text, const Elements& elements) {
  const std::size_t point = nextElement(text, elements.point);
  if (point == text.npos) return point;
  std::size_t first = point;
  for (const std::string_view name : elements.beginnings) {
    first = std::min(first, nextElement(text.substr(0, point), name));
  }
  return first;
}

/// Reads all points. A fault costs the rest of the point in which it stands: reading goes on at the
/// next one.
/// @throws XMLError the first fault, once all points are read
void readPoints(platform::DataView bytes, const Elements& elements, Track& track) {
  constexpr std::size_t kMostFaults = 10'000;  // Each makes a parser.
  constexpr std::size_t kMostUnfinished = 16;  // Each has up to 1 MiB read in vain.
  const std::optional<std::string> utf8 = utf8FromUTF16(bytes);
  if (utf8) bytes = platform::bytesOf(*utf8);
  const platform::DataView whole = bytes;
  PointReader reader(elements, track);
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
    const std::size_t next = nextBeginning(platform::textOf(bytes), elements);
    if (next == std::string_view::npos) break;
    bytes = bytes.subspan(next);
    if (!declaration) declaration = declarationOf(whole);
    before = fmt::format("{}<{}>", *declaration, elements.root);
    reader.restart();
  }
  reader.finish();
  if (first) throw platform::XMLError(*first);
}

}  // namespace

void readGPX(platform::DataView bytes, Track& track) {
  constexpr std::string_view kBeginnings[] = {"trkseg"};
  readPoints(bytes, {"gpx", "trkpt", kBeginnings}, track);
}

void readTCX(platform::DataView bytes, Track& track) {
  constexpr std::string_view kBeginnings[] = {"Lap", "Track"};
  readPoints(bytes, {"TrainingCenterDatabase", "Trackpoint", kBeginnings}, track);
}

}  // namespace ombrix::detail

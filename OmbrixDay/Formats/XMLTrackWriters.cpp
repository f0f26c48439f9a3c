// Writes GPX 1.1 and TCX. Figures that neither has a place for stand in elements of our own among
// the extensions, which other programs pass over. So do those of which the schemas take whole
// numbers only: beside them stands the rounded one.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>

#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixDay/Formats/Detail/XMLWords.hpp"

namespace ombrix::detail {
namespace {

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

/// Adds an element with a text, unless the text is empty.
void addText(std::string& out, std::string_view name, std::string_view text) {
  if (text.empty()) return;
  fmt::format_to(std::back_inserter(out), "<{0}>{1}</{0}>", name, escaped(text));
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

/// Adds an element with what a sensor told, if it told anything.
void addSensor(std::string& out, std::string_view name, const TrackPoint& point, Sensor sensor) {
  if (!isSensorValue(sensor, point.sensors[sensor])) return;
  fmt::format_to(std::back_inserter(out), "<{0}>{1}</{0}>", name,
                 decimalText(point.sensors[sensor], 6));
}

/// The whole numbers that a schema allows.
struct WholeNumbers {
  double least, most;
};
constexpr WholeNumbers kBeats{1, 255}, kTurns{0, 254}, kShort{0, 65'535};

/// Adds an element with a whole number, if the schema allows it, and one of our own where that is
/// not the number itself; nothing for an unknown one.
void addWhole(std::string& out, std::string_view name, double value, WholeNumbers allowed,
              std::string& own, std::string_view ownName) {
  const double whole = std::round(value);
  const bool isAllowed = whole >= allowed.least && whole <= allowed.most;
  if (isAllowed) addFigure(out, name, whole, 0);
  if (!isAllowed || whole != value) addFigure(own, ownName, value, 6);
}

/// Adds an element with others in it, unless there are none.
void addGroup(std::string& out, std::string_view name, std::string_view elements) {
  if (!elements.empty()) fmt::format_to(std::back_inserter(out), "<{0}>{1}</{0}>", name, elements);
}

void addPoint(std::string& out, const TrackPoint& point) {
  const CLLocation& fix = *point.fix;
  out += "<trkpt lat=\"" + decimalText(fix.coordinate.latitude, 9) + "\" lon=\"" +
         decimalText(fix.coordinate.longitude, 9) + "\">";
  if (hasAltitude(fix)) out += "<ele>" + decimalText(fix.altitude, 6) + "</ele>";
  out += "<time>" + timeText(fix.timestamp) + "</time>";
  std::string figures, extensions, own;
  addSensor(figures, "gpxtpx:atemp", point, kTemperature);
  addWhole(figures, "gpxtpx:hr", point.sensors[kHeartRate], kBeats, own, "o:heartRate");
  addWhole(figures, "gpxtpx:cad", point.sensors[kCadence], kTurns, own, "o:cadence");
  addFigure(figures, "gpxtpx:speed", fix.speed, 6);
  addFigure(figures, "gpxtpx:course", fix.course, 6);
  addGroup(extensions, "gpxtpx:TrackPointExtension", figures);
  addWhole(extensions, "pwr:PowerInWatts", point.sensors[kPower], kShort, own, "o:power");
  addSensor(own, "o:distance", point, kDistance);
  addGroup(out, "extensions", extensions + own + ownFigures(fix));
  out += "</trkpt>\n";
}

/// Writes laps point by point.
class LapWriter {
 public:
  LapWriter(std::string& out, bool isRun) : out_(out), isRun_(isRun) {}

  void begin(const Lap& lap) {
    lap_ = &lap;
    own_.clear();
    out_ += "<Lap StartTime=\"" + timeText(lap.begin) + "\">";
    addFigure(out_, "TotalTimeSeconds", lap.seconds, 6);
    addFigure(out_, "DistanceMeters", lap.distanceMeters, 6);
    addFigure(out_, "MaximumSpeed", lap.maxSpeed, 6);
    addWhole(out_, "Calories", lap.kilocalories, kShort, own_, "o:calories");
    // A lap must tell them.
    if (std::round(lap.kilocalories) > kShort.most) out_ += "<Calories>65535</Calories>";
    addHeartRate("AverageHeartRateBpm", lap.averageHeartRate, own_, "o:averageHeartRate");
    addHeartRate("MaximumHeartRateBpm", lap.maxHeartRate, own_, "o:maxHeartRate");
    addText(out_, "Intensity", lap.isRest ? kRest : "Active");
    if (!isRun_) addWhole(out_, "Cadence", lap.averageCadence, kTurns, own_, "o:averageCadence");
    addText(out_, "TriggerMethod", kLapTriggers[static_cast<std::size_t>(lap.trigger)]);
    isTrack_ = false;
  }

  void add(const TrackPoint& point) {
    if (point.beginsSegment) endTrack();
    if (!isTrack_) out_ += "<Track>\n";
    isTrack_ = true;
    out_ += "<Trackpoint><Time>" + timeText(point.time) + "</Time>";
    const CLLocation* const fix = point.fix;
    double altitude = point.sensors[kLoneAltitude], speed = point.sensors[kLoneSpeed];
    if (fix != nullptr) {
      altitude = hasAltitude(*fix) ? fix->altitude : kNone;
      speed = fix->speed;
      out_ += "<Position><LatitudeDegrees>" + decimalText(fix->coordinate.latitude, 9) +
              "</LatitudeDegrees><LongitudeDegrees>" + decimalText(fix->coordinate.longitude, 9) +
              "</LongitudeDegrees></Position>";
    }
    if (!std::isnan(altitude)) {
      out_ += "<AltitudeMeters>" + decimalText(altitude, 6) + "</AltitudeMeters>";
    }
    addSensor(out_, "DistanceMeters", point, kDistance);
    std::string figures, extensions, own;
    addHeartRate("HeartRateBpm", point.sensors[kHeartRate], own, "o:heartRate");
    addFigure(figures, "x:Speed", speed, 6);
    addWhole(isRun_ ? figures : out_, isRun_ ? "x:RunCadence" : "Cadence", point.sensors[kCadence],
             kTurns, own, "o:cadence");
    addWhole(figures, "x:Watts", point.sensors[kPower], kShort, own, "o:power");
    addGroup(extensions, "x:TPX", figures);
    extensions += own;
    addSensor(extensions, "o:atemp", point, kTemperature);
    if (fix != nullptr) {
      addFigure(extensions, "o:course", fix->course, 6);
      extensions += ownFigures(*fix);
    }
    addGroup(out_, "Extensions", extensions);
    out_ += "</Trackpoint>\n";
  }

  /// @param isBroken Whether recording stopped here, which the next lap's beginning alone does not
  ///   say.
  void end(bool isBroken) {
    endTrack();
    addText(out_, "Notes", lap_->notes);
    std::string totals, extensions;
    addFigure(totals, "x:AvgSpeed", lap_->averageSpeed, 6);
    if (isRun_) {
      addWhole(totals, "x:AvgRunCadence", lap_->averageCadence, kTurns, own_, "o:averageCadence");
    }
    addWhole(totals, isRun_ ? "x:MaxRunCadence" : "x:MaxBikeCadence", lap_->maxCadence, kTurns,
             own_, "o:maxCadence");
    addWhole(totals, "x:AvgWatts", lap_->averagePower, kShort, own_, "o:averagePower");
    addWhole(totals, "x:MaxWatts", lap_->maxPower, kShort, own_, "o:maxPower");
    addGroup(extensions, "x:LX", totals);
    extensions += own_;
    if (isBroken) extensions += "<o:break/>";
    addGroup(out_, "Extensions", extensions);
    out_ += "</Lap>\n";
  }

 private:
  void endTrack() {
    if (isTrack_) out_ += "</Track>";
    isTrack_ = false;
  }

  void addHeartRate(std::string_view name, double beats, std::string& own,
                    std::string_view ownName) {
    std::string rate;
    addWhole(rate, "Value", beats, kBeats, own, ownName);
    addGroup(out_, name, rate);
  }

  std::string& out_;
  std::string own_;  ///< Of the lap, what the schema rounds.
  const bool isRun_;
  const Lap* lap_ = nullptr;
  bool isTrack_ = false;
};

}  // namespace

std::string writeGPX(const Track& track) {
  std::string out = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<gpx version=\"1.1\" creator=\"Ombrix\" xmlns=\"http://www.topografix.com/GPX/1/1\" "
      "xmlns:gpxtpx=\"http://www.garmin.com/xmlschemas/TrackPointExtension/v2\" "
      "xmlns:pwr=\"http://www.garmin.com/xmlschemas/PowerExtension/v1\" xmlns:o=\"{}\">\n"
      "<trk>",
      kOwnNamespace);
  addText(out, "name", track.name);
  addText(out, "desc", track.notes);
  addText(out, "type", track.sport);
  out += "<trkseg>\n";
  PointSequence points(track);
  for (TrackPoint point; points.next(point);) {
    if (point.fix == nullptr) continue;  // A point of this format has a place.
    if (point.beginsSegment) out += "</trkseg>\n<trkseg>\n";
    addPoint(out, point);
  }
  return out + "</trkseg></trk>\n</gpx>\n";
}

std::string writeTCX(const Track& track) {
  std::string out = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<TrainingCenterDatabase "
      "xmlns=\"http://www.garmin.com/xmlschemas/TrainingCenterDatabase/v2\" "
      "xmlns:x=\"http://www.garmin.com/xmlschemas/ActivityExtension/v2\" xmlns:o=\"{}\">\n",
      kOwnNamespace);
  const std::vector<Lap> laps = writtenLaps(track);
  if (laps.empty()) return out + "</TrainingCenterDatabase>\n";
  const auto* sport =
      std::ranges::find(kSports, track.sport, [](const auto& words) { return words.second; });
  const bool isKnown = sport != std::end(kSports);
  out += fmt::format("<Activities><Activity Sport=\"{}\"><Id>{}</Id>\n",
                     isKnown ? sport->first : "Other", timeText(laps.front().begin));
  PointSequence points(track);
  TrackPoint point;
  bool hasPoint = points.next(point);
  LapWriter writer(out, track.sport == "running");
  for (std::size_t i = 0; i < laps.size(); ++i) {
    writer.begin(laps[i]);
    const bool isLast = i + 1 == laps.size();
    for (; hasPoint && (isLast || point.time < laps[i + 1].begin); hasPoint = points.next(point)) {
      writer.add(point);
    }
    writer.end(hasPoint && point.beginsSegment);
  }
  addText(out, "Notes", track.notes);
  std::string extensions;
  addText(extensions, "o:name", track.name);
  if (!isKnown) addText(extensions, "o:sport", track.sport);
  addGroup(out, "Extensions", extensions);
  return out + "</Activity></Activities>\n</TrainingCenterDatabase>\n";
}

}  // namespace ombrix::detail

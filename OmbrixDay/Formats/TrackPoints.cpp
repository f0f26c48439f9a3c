// What the readers of all formats put into a track, and the order in which the writers get it out.

#include <algorithm>
#include <cmath>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix {
namespace detail {
namespace {

constexpr double kMostFigure = 1e9;

bool isFigure(double value) { return value >= 0 && value < kMostFigure; }

bool isOnGlobe(const CLLocation& fix) {
  return std::abs(fix.coordinate.latitude) <= 90 && std::abs(fix.coordinate.longitude) <= 180;
}

using Readings = std::vector<SensorReading> Track::*;
constexpr Readings kReadings[] = {&Track::cadences,  &Track::powers,        &Track::temperatures,
                                  &Track::distances, &Track::loneAltitudes, &Track::loneSpeeds};

/// How many readings a track keeps of a sensor.
std::size_t countOf(const Track& track, std::size_t sensor) {
  return sensor == kHeartRate ? track.heartRates.size() : readingsOf(track, sensor).size();
}

/// How many readings of each sensor stand at points that are written.
std::array<std::size_t, kSensors> writtenReadings(const Track& track, TrackFormat format) {
  std::array<std::size_t, kSensors> written{};
  if (format == TrackFormat::csv) return written;
  PointSequence points(track);
  for (TrackPoint point; points.next(point);) {
    if (point.fix == nullptr && format != TrackFormat::tcx) continue;
    for (std::size_t sensor = 0; sensor < kSensors; ++sensor) {
      const bool isAlone = sensor == kLoneAltitude || sensor == kLoneSpeed;
      if (isAlone && point.fix != nullptr) continue;  // It has its own.
      written[sensor] += !std::isnan(point.sensors[sensor]);
    }
  }
  return written;
}

}  // namespace

bool isSensorValue(std::size_t sensor, double value) {
  const bool mayBeNegative = sensor == kTemperature || sensor == kLoneAltitude;
  return isFigure(value) || (mayBeNegative && std::abs(value) < kMostFigure);
}

std::vector<SensorReading>& readingsOf(Track& track, std::size_t sensor) {
  return track.*kReadings[sensor - kCadence];
}

const std::vector<SensorReading>& readingsOf(const Track& track, std::size_t sensor) {
  return track.*kReadings[sensor - kCadence];
}

bool isWritable(const CLLocation& fix) {
  return isOnGlobe(fix) && std::isfinite(fix.altitude) && hasTimeText(fix.timestamp);
}

std::optional<SensorReading> PointSequence::reading(std::size_t sensor) {
  std::size_t& next = nextReading_[sensor];
  for (; next < countOf(track_, sensor); ++next) {
    const SensorReading reading =
        sensor == kHeartRate
            ? SensorReading{track_.heartRates[next].time, track_.heartRates[next].beatsPerMinute}
            : readingsOf(track_, sensor)[next];
    if (isSensorValue(sensor, reading.value) && hasTimeText(reading.time)) return reading;
  }
  return std::nullopt;
}

bool PointSequence::next(TrackPoint& point) {
  while (nextFix_ < track_.fixes.size() && !isWritable(track_.fixes[nextFix_])) ++nextFix_;
  point = {};
  if (nextFix_ < track_.fixes.size()) point.fix = &track_.fixes[nextFix_];
  std::array<std::optional<SensorReading>, kSensors> readings;
  const SensorReading* earliest = nullptr;
  for (std::size_t sensor = 0; sensor < kSensors; ++sensor) {
    readings[sensor] = reading(sensor);
    if (!readings[sensor]) continue;
    if (earliest == nullptr || readings[sensor]->time < earliest->time) {
      earliest = &*readings[sensor];
    }
  }
  if (point.fix == nullptr && earliest == nullptr) return false;
  if (point.fix != nullptr && earliest != nullptr && earliest->time < point.fix->timestamp) {
    point.fix = nullptr;
  }
  point.time = point.fix != nullptr ? point.fix->timestamp : earliest->time;
  for (std::size_t sensor = 0; sensor < kSensors; ++sensor) {
    if (!readings[sensor] || readings[sensor]->time != point.time) continue;
    point.sensors[sensor] = readings[sensor]->value;
    ++nextReading_[sensor];
  }
  if (point.fix == nullptr) return true;
  while (nextBreak_ < track_.breaks.size() && track_.breaks[nextBreak_] <= nextFix_) {
    ++nextBreak_;
    point.beginsSegment = hasFix_;
  }
  hasFix_ = true;
  ++nextFix_;
  return true;
}

std::vector<Lap> lapsInOrder(const Track& track) {
  std::vector<Lap> laps;
  for (const Lap& lap : track.laps) {
    if (hasTimeText(lap.begin) && (laps.empty() || lap.begin > laps.back().begin)) {
      laps.push_back(lap);
    }
  }
  return laps;
}

std::vector<Lap> writtenLaps(const Track& track) {
  const auto rounded = [](double value) { return std::round(100 * value) / 100; };
  std::vector<Lap> laps = lapsInOrder(track);
  PointSequence points(track);
  TrackPoint point;
  if (!points.next(point)) return laps;
  if (laps.empty()) laps.push_back({.begin = point.time});
  bool hasPoint = true;
  for (std::size_t i = 0; i < laps.size(); ++i) {
    double meters = 0, stopped = 0;
    platform::Date end = laps[i].begin;
    const CLLocation* last = nullptr;
    const bool isLast = i + 1 == laps.size();
    for (; hasPoint && (isLast || point.time < laps[i + 1].begin); hasPoint = points.next(point)) {
      if (last != nullptr && point.beginsSegment) stopped += (point.time - end).count();
      end = std::max(end, point.time);
      if (point.fix == nullptr) continue;
      if (last != nullptr && !point.beginsSegment) meters += last->distanceFrom(*point.fix);
      last = point.fix;
    }
    Lap& lap = laps[i];
    if (!isFigure(lap.seconds)) {
      lap.seconds = rounded(std::max(0.0, (end - lap.begin).count() - stopped));
    }
    if (!isFigure(lap.distanceMeters)) lap.distanceMeters = rounded(meters);
    if (!isFigure(lap.kilocalories)) lap.kilocalories = 0;
  }
  return laps;
}

void keep(Track& track, const CLLocation& fix, SensorValues sensors,
          std::optional<platform::Date> time) {
  const bool hasPlace = isOnGlobe(fix);
  sensors[kLoneAltitude] = hasPlace ? kNone : fix.altitude;
  sensors[kLoneSpeed] = hasPlace ? kNone : fix.speed;
  bool hasSensor = false;
  for (std::size_t sensor = 0; sensor < kLoneAltitude; ++sensor) {
    hasSensor |= isSensorValue(sensor, sensors[sensor]);
  }
  if (!time || (!hasPlace && !hasSensor)) {
    ++track.skipped;
    return;
  }
  const auto checkRoom = [](std::size_t count) {
    if (count >= kMostTrackPoints) {
      throw TrackFormatError("it holds more than five million points");
    }
  };
  checkRoom(track.fixes.size());
  for (std::size_t sensor = 0; sensor < kSensors; ++sensor) checkRoom(countOf(track, sensor));
  if (hasPlace) {
    track.fixes.push_back(fix);
    CLLocation& kept = track.fixes.back();
    kept.timestamp = *time;
    if (!(std::abs(kept.altitude) < kMostFigure)) {
      kept.altitude = 0;
      kept.verticalAccuracy = -1;
    }
    for (double* figure :
         {&kept.speed, &kept.course, &kept.horizontalAccuracy, &kept.verticalAccuracy}) {
      if (!isFigure(*figure)) *figure = -1;
    }
  }
  for (std::size_t sensor = 0; sensor < kSensors; ++sensor) {
    if (!isSensorValue(sensor, sensors[sensor])) continue;
    if (sensor == kHeartRate) {
      track.heartRates.push_back({*time, sensors[sensor]});
    } else {
      readingsOf(track, sensor).push_back({*time, sensors[sensor]});
    }
  }
}

void passOver(Track& track, std::string_view what, std::size_t count) {
  if (count == 0) return;
  const auto known = std::ranges::find(track.unread, what, &LeftOut::what);
  if (known == track.unread.end()) {
    track.unread.push_back({what, count});
  } else {
    known->count += count;
  }
}

void beginSegment(Track& track) {
  const std::size_t next = track.fixes.size();
  if (next > 0 && (track.breaks.empty() || track.breaks.back() != next)) {
    track.breaks.push_back(next);
  }
}

void keep(Track& track, const Lap& lap) {
  if (track.laps.size() < kMostTrackLaps) track.laps.push_back(lap);
}

}  // namespace detail

std::size_t writableFixes(const Track& track) {
  return static_cast<std::size_t>(std::ranges::count_if(track.fixes, detail::isWritable));
}

bool isWorthWriting(const Track& track, TrackFormat format) {
  if (format != TrackFormat::tcx) return writableFixes(track) > 0;
  detail::TrackPoint point;
  return !track.laps.empty() || detail::PointSequence(track).next(point);
}

std::vector<LeftOut> leftOut(const Track& track, TrackFormat format) {
  constexpr std::string_view kNames[] = {"Heart rate", "Cadence",  "Power", "Temperature",
                                         "Distance",   "Altitude", "Speed"};
  std::vector<LeftOut> all;
  const auto add = [&](std::string_view what, std::size_t count) {
    if (count > 0) all.push_back({what, count});
  };
  const auto written = detail::writtenReadings(track, format);
  for (std::size_t sensor = 0; sensor < detail::kSensors; ++sensor) {
    add(kNames[sensor], detail::countOf(track, sensor) - written[sensor]);
  }
  const bool holdsLaps = format == TrackFormat::tcx;
  add("Laps", track.laps.size() - (holdsLaps ? detail::lapsInOrder(track).size() : 0));
  if (format == TrackFormat::csv) {
    add("Breaks", track.breaks.size());
    add("Name", track.name.empty() ? 0 : 1);
    add("Sport", track.sport.empty() ? 0 : 1);
    add("Notes", track.notes.empty() ? 0 : 1);
  }
  all.insert(all.end(), track.unread.begin(), track.unread.end());
  return all;
}

}  // namespace ombrix

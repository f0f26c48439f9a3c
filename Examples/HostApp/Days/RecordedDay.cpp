#include "Examples/HostApp/Days/RecordedDay.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "OmbrixCore/Extensions/Search/Math.hpp"
#include "OmbrixDay/Filters/DerivedMotion.hpp"

namespace ombrix::hostapp {
namespace {

using platform::JSON;

JSON figure(std::optional<double> value) {
  return value && std::isfinite(*value) ? JSON(*value) : JSON();
}

JSON seconds(std::optional<platform::Date> date) {
  return date ? figure(platform::timeIntervalSince1970(*date)) : JSON();
}

/// @param hasAltitudes False: there are no figures of height.
void addFigures(JSON::Dictionary& json, const SegmentFigures& figures, bool hasAltitudes) {
  json.set("movingSeconds", figure(figures.movingSeconds));
  json.set("distanceMeters", figure(figures.distanceMeters));
  json.set("ascentMeters", hasAltitudes ? figure(figures.ascentMeters) : JSON());
  json.set("descentMeters", hasAltitudes ? figure(figures.descentMeters) : JSON());
  json.set("maxSpeedMetersPerSecond", figure(figures.maxSpeedMetersPerSecond));
  json.set("averageSpeedMetersPerSecond", figure(figures.averageSpeedMetersPerSecond));
}

JSON heartRateJSON(const SegmentFigures& figures) {
  return JSON::Dictionary{{"samples", figures.heartRates},
                          {"averageBeatsPerMinute", figure(figures.averageHeartRate)},
                          {"maxBeatsPerMinute", figure(figures.maxHeartRate)}};
}

JSON segmentJSON(const DaySegment& segment, bool hasAltitudes) {
  JSON::Dictionary json{{"kind", platform::rawValue(segment.kind)},
                        {"number", segment.number},
                        {"startTime", seconds(segment.begin)},
                        {"endTime", seconds(segment.end)},
                        {"verticalMeters", hasAltitudes ? figure(segment.vertical()) : JSON()},
                        {"slopeDegrees", hasAltitudes ? figure(segment.slopeDegrees) : JSON()}};
  addFigures(json, segment.figures, hasAltitudes);
  if (segment.figures.heartRates > 0) json.set("heartRate", heartRateJSON(segment.figures));
  return json;
}

}  // namespace

double RecordedDay::spanSeconds() const {
  const DayTotals& totals = day.totals;
  return totals.begin && totals.end ? (*totals.end - *totals.begin).count() : 0;
}

namespace {

/// The span without breaks longer than a day: a recording with such a break is of several days, or
/// its receiver took long to know the time.
double activeSeconds(const RecordedDay& recorded) {
  constexpr double kDaySeconds = 24 * 3600;
  double seconds = recorded.spanSeconds();
  for (const DaySegment& segment : recorded.day.segments) {
    if (segment.figures.seconds > kDaySeconds) seconds -= segment.figures.seconds;
  }
  return seconds;
}

}  // namespace

RecordedDay measured(Track track, std::string title, std::optional<double> weightKilograms) {
  sortByTime(track.fixes);
  std::ranges::stable_sort(track.heartRates, {}, &HeartRate::time);
  deriveMissingMotion(track.fixes);
  RecordedDay recorded{std::move(title), track.skipped, measureDay(track.fixes, track.heartRates),
                       std::nullopt, std::move(track.fault)};
  if (weightKilograms) {
    recorded.kilocalories =
        Math::caloriesBurnedForUserWithWeight(*weightKilograms, activeSeconds(recorded));
  }
  return recorded;
}

JSON toJSON(const RecordedDay& recorded) {
  const Day& day = recorded.day;
  const DayTotals& totals = day.totals;
  JSON::Dictionary json{{"rows", day.counts.read},
                        {"skipped", recorded.skipped},
                        {"usedForStats", day.counts.used},
                        {"offGlobe", day.counts.offTheGlobe},
                        {"beyondLimit", day.counts.beyondLimit},
                        {"startTime", seconds(totals.begin)},
                        {"endTime", seconds(totals.end)},
                        {"runs", totals.runs},
                        {"lifts", totals.lifts}};
  if (!recorded.fault.empty()) json.set("fault", recorded.fault);
  const bool hasAltitudes = totals.minAltitude.has_value();
  addFigures(json, totals.all, hasAltitudes);
  json.set("runDistanceMeters", figure(totals.run.distanceMeters));
  json.set("minAltitudeMeters", figure(totals.minAltitude));
  json.set("maxAltitudeMeters", figure(totals.maxAltitude));
  if (totals.all.heartRates > 0) json.set("heartRate", heartRateJSON(totals.all));
  if (recorded.kilocalories) json.set("kilocalories", figure(recorded.kilocalories));
  JSON::Array segments;
  for (const DaySegment& segment : day.segments) {
    segments.push_back(segmentJSON(segment, hasAltitudes));
  }
  json.set("segments", std::move(segments));
  return json;
}

std::string lineOf(const JSON& json) { return std::string(platform::textOf(json.rawData())); }

}  // namespace ombrix::hostapp

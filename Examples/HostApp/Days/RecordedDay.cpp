#include "Examples/HostApp/Days/RecordedDay.hpp"

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

void addFigures(JSON::Dictionary& json, const SegmentFigures& figures) {
  json.set("movingSeconds", figure(figures.movingSeconds));
  json.set("distanceMeters", figure(figures.distanceMeters));
  json.set("ascentMeters", figure(figures.ascentMeters));
  json.set("descentMeters", figure(figures.descentMeters));
  json.set("maxSpeedMetersPerSecond", figure(figures.maxSpeedMetersPerSecond));
  json.set("averageSpeedMetersPerSecond", figure(figures.averageSpeedMetersPerSecond));
}

JSON heartRateJSON(const SegmentFigures& figures) {
  return JSON::Dictionary{{"samples", figures.heartRates},
                          {"averageBeatsPerMinute", figure(figures.averageHeartRate)},
                          {"maxBeatsPerMinute", figure(figures.maxHeartRate)}};
}

JSON segmentJSON(const DaySegment& segment) {
  JSON::Dictionary json{{"kind", platform::rawValue(segment.kind)},
                        {"number", segment.number},
                        {"startTime", seconds(segment.begin)},
                        {"endTime", seconds(segment.end)},
                        {"verticalMeters", figure(segment.vertical())},
                        {"slopeDegrees", figure(segment.slopeDegrees)}};
  addFigures(json, segment.figures);
  if (segment.figures.heartRates > 0) json.set("heartRate", heartRateJSON(segment.figures));
  return json;
}

}  // namespace

double RecordedDay::spanSeconds() const {
  const DayTotals& totals = day.totals;
  return totals.begin && totals.end ? (*totals.end - *totals.begin).count() : 0;
}

namespace {

/// The span without breaks longer than a day, in which nobody skis: the recording is of several
/// days, or of a receiver that took long to know the time.
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
  deriveMissingMotion(track.fixes);
  RecordedDay recorded{std::move(title), track.skipped, measureDay(track.fixes, track.heartRates),
                       std::nullopt};
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
  addFigures(json, totals.all);
  json.set("runDistanceMeters", figure(totals.run.distanceMeters));
  json.set("minAltitudeMeters", figure(totals.minAltitude));
  json.set("maxAltitudeMeters", figure(totals.maxAltitude));
  if (totals.all.heartRates > 0) json.set("heartRate", heartRateJSON(totals.all));
  if (recorded.kilocalories) json.set("kilocalories", figure(recorded.kilocalories));
  JSON::Array segments;
  for (const DaySegment& segment : day.segments) segments.push_back(segmentJSON(segment));
  json.set("segments", std::move(segments));
  return json;
}

std::string lineOf(const JSON& json) { return std::string(platform::textOf(json.rawData())); }

}  // namespace ombrix::hostapp

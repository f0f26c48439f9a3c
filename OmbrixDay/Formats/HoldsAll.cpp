// Whether nothing is lost where one recording takes another one's place.

#include <algorithm>
#include <cmath>
#include <span>
#include <string_view>
#include <vector>

#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix {
namespace {

using detail::PointSequence;
using detail::TrackPoint;

// The amounts that formats round or truncate. Two devices never agree that closely for long.
constexpr double kSeconds = 1e-3, kDegrees = 2e-6, kMeters = 2e-3, kFigure = 2e-3, kCourse = 0.11,
                 kAccuracy = 0.11;

bool isNear(double a, double b, double most) { return std::abs(a - b) <= most; }

/// Whether a figure is known where the other one is, and the same.
bool holdsFigure(double mine, double other, double most) {
  return !(other >= 0) || isNear(mine, other, most);
}

struct Point {
  double seconds = 0;
  TrackPoint point;
};

/// The points that a file of a format holds, in order of time.
std::vector<Point> pointsIn(const Track& track, TrackFormat format) {
  const bool isCSV = format == TrackFormat::csv, holdsAlone = format == TrackFormat::tcx;
  std::vector<Point> points;
  PointSequence sequence(track);
  for (TrackPoint point; sequence.next(point);) {
    if (point.fix == nullptr && !holdsAlone) continue;
    if (isCSV) {
      point.sensors = detail::kNoSensorValues;
      point.beginsSegment = false;
    }
    points.push_back({platform::timeIntervalSince1970(point.time), point});
  }
  if (!std::ranges::is_sorted(points, {}, &Point::seconds)) {
    std::ranges::stable_sort(points, {}, &Point::seconds);
  }
  return points;
}

bool holdsFix(const CLLocation& mine, const CLLocation& other) {
  return isNear(mine.coordinate.latitude, other.coordinate.latitude, kDegrees) &&
         isNear(mine.coordinate.longitude, other.coordinate.longitude, kDegrees) &&
         (!hasAltitude(other) ||
          (hasAltitude(mine) && isNear(mine.altitude, other.altitude, kMeters))) &&
         holdsFigure(mine.speed, other.speed, kFigure) &&
         holdsFigure(mine.course, other.course, kCourse) &&
         holdsFigure(mine.horizontalAccuracy, other.horizontalAccuracy, kAccuracy) &&
         holdsFigure(mine.verticalAccuracy, other.verticalAccuracy, kAccuracy);
}

/// Whether points of one instant hold another one's fix, and what its sensors told.
bool holdPoint(std::span<const Point> mine, const TrackPoint& other) {
  const auto holdsOthersFix = [&](const Point& each) {
    return each.point.fix != nullptr && holdsFix(*each.point.fix, *other.fix) &&
           (each.point.beginsSegment || !other.beginsSegment);
  };
  if (other.fix != nullptr && !std::ranges::any_of(mine, holdsOthersFix)) return false;
  for (std::size_t sensor = 0; sensor < detail::kSensors; ++sensor) {
    const double value = other.sensors[sensor];
    const auto holdsValue = [&](const Point& each) {
      return isNear(each.point.sensors[sensor], value, kFigure);
    };
    if (!std::isnan(value) && !std::ranges::any_of(mine, holdsValue)) return false;
  }
  return true;
}

bool holdsPoints(const std::vector<Point>& mine, const std::vector<Point>& others) {
  constexpr std::size_t kMostAtOnce = 1'000;  // More points of one time are not compared.
  std::size_t first = 0;
  for (const Point& other : others) {
    while (first < mine.size() && mine[first].seconds < other.seconds - kSeconds) ++first;
    std::size_t end = first;
    while (end < mine.size() && end - first < kMostAtOnce &&
           mine[end].seconds <= other.seconds + kSeconds) {
      ++end;
    }
    if (!holdPoint(std::span(mine).subspan(first, end - first), other.point)) return false;
  }
  return true;
}

/// Whether a text is there; what readers and writers of XML leave out is not looked at.
bool holdsText(std::string_view mine, std::string_view other) {
  const auto next = [](std::string_view& text) -> int {
    constexpr std::string_view kNoCharacters[] = {"\xEF\xBF\xBE", "\xEF\xBF\xBF"};
    while (!text.empty()) {
      const bool isNone = text.starts_with(kNoCharacters[0]) || text.starts_with(kNoCharacters[1]);
      const auto c = static_cast<unsigned char>(text[0]);
      text.remove_prefix(isNone ? 3 : 1);
      if (!isNone && c > ' ') return c;
    }
    return -1;
  };
  for (int wanted = next(other); wanted >= 0; wanted = next(other)) {
    if (next(mine) != wanted) return false;
  }
  return true;
}

/// @param mayGrow Whether the other lap is its recording's last one: it may have gone on.
bool holdsLap(const Lap& mine, const Lap& other, bool mayGrow) {
  constexpr double Lap::* kSums[] = {&Lap::seconds,  &Lap::distanceMeters, &Lap::kilocalories,
                                     &Lap::maxSpeed, &Lap::maxHeartRate,   &Lap::maxCadence,
                                     &Lap::maxPower};
  constexpr double Lap::* kAverages[] = {&Lap::averageSpeed, &Lap::averageHeartRate,
                                         &Lap::averageCadence, &Lap::averagePower};
  constexpr double kRounding = 0.02;
  const auto holdsSum = [&](double Lap::* total) {
    return holdsFigure(mine.*total, other.*total, kRounding) ||
           (mayGrow && mine.*total > other.*total);
  };
  const auto holdsAverage = [&](double Lap::* total) {
    return holdsFigure(mine.*total, other.*total, kRounding) || (mayGrow && mine.*total >= 0);
  };
  return isNear((mine.begin - other.begin).count(), 0, kSeconds) &&
         std::ranges::all_of(kSums, holdsSum) && std::ranges::all_of(kAverages, holdsAverage) &&
         mine.isRest == other.isRest && (mayGrow || mine.trigger == other.trigger) &&
         holdsText(mine.notes, other.notes);
}

bool holdsLaps(const std::vector<Lap>& mine, const std::vector<Lap>& others) {
  auto first = mine.begin();  // Both are in order of time.
  for (const Lap& other : others) {
    first = std::find_if(first, mine.end(), [&](const Lap& lap) {
      return holdsLap(lap, other, &other == &others.back());
    });
    if (first == mine.end()) return false;
  }
  return true;
}

}  // namespace

bool holdsAll(const Track& track, TrackFormat format, const Track& other) {
  const bool isCSV = format == TrackFormat::csv;
  if (!other.unread.empty() || other.skipped > 0) return false;
  constexpr std::string Track::* kTexts[] = {&Track::name, &Track::sport, &Track::notes};
  for (const auto each : kTexts) {
    if (!holdsText(isCSV ? std::string() : track.*each, other.*each)) return false;
  }
  // A format of points with a place holds no others, but another one's recording may.
  if (!holdsPoints(pointsIn(track, format), pointsIn(other, TrackFormat::tcx))) return false;
  if (other.laps.empty()) return true;
  return format == TrackFormat::tcx &&
         holdsLaps(detail::writtenLaps(track), detail::writtenLaps(other));
}

}  // namespace ombrix

#include "Examples/HostApp/Page/TrackMap.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "Examples/HostApp/Page/Markup.hpp"

namespace ombrix::hostapp {
namespace {

constexpr double kMargin = 28;
constexpr double kFoot = 24;  // Below the tracks, for the scale.
constexpr double kTolerance = 0.6;
constexpr double kLeastHeight = 420, kMostHeight = 900;
constexpr double kLeastMeters = 200;  // across, so that a short walk is not enlarged
constexpr double kBadgeRadius = 13;
constexpr double kBadgeRoom = 27;  // The size of a badge on a phone, where it is drawn larger.
constexpr double kBadgeApart = 2 * kBadgeRoom;
constexpr double kMetersPerDegree = 111'195;  // On a sphere of the earth's mean radius.

/// Longitudes without the jump at 180 degrees.
double unwrapped(double longitude, double near) {
  while (longitude - near > 180) longitude -= 360;
  while (longitude - near < -180) longitude += 360;
  return longitude;
}

struct Frame {
  double west = 0, east = 0, south = 0, north = 0;

  void take(Point place) {
    west = std::min(west, place.x);
    east = std::max(east, place.x);
    south = std::min(south, place.y);
    north = std::max(north, place.y);
  }
};

/// Places in metres east and north of the first one. Locally true: a day's tracks are small.
std::vector<Point> flat(const Day& day) {
  const auto& origin = day.samples.front().coordinate;
  double latitudes = 0;
  for (const DaySample& sample : day.samples) latitudes += sample.coordinate.latitude;
  const double middle = latitudes / static_cast<double>(day.samples.size());
  const double shrink = std::max(0.01, std::cos(middle * std::numbers::pi / 180));
  std::vector<Point> places;
  places.reserve(day.samples.size());
  for (const DaySample& sample : day.samples) {
    const double longitude = unwrapped(sample.coordinate.longitude, origin.longitude);
    places.push_back({(longitude - origin.longitude) * kMetersPerDegree * shrink,
                      (sample.coordinate.latitude - origin.latitude) * kMetersPerDegree});
  }
  return places;
}

/// How much a badge at a place and the others cover each other: little where only edges meet, as
/// drawn on a phone; much where a number is hidden.
double overlap(Point place, std::span<const Point> others) {
  double sum = 0;
  for (const Point& other : others) {
    const double covered =
        std::max(0.0, 1 - std::hypot(place.x - other.x, place.y - other.y) / kBadgeApart);
    sum += 4 * covered * covered;
  }
  return sum;
}

}  // namespace

TrackMap::TrackMap(const Day& day, FigureTexts& figures, double coarseness)
    : day_(day), figures_(figures), places_(flat(day)), tolerance_(coarseness * kTolerance) {
  Frame frame;
  for (const Point& place : places_) frame.take(place);
  const double across = std::max(frame.east - frame.west, kLeastMeters);
  const double up = std::max(frame.north - frame.south, kLeastMeters);
  unitsPerMeter_ =
      std::min((kWidth - 2 * kMargin) / across, (kMostHeight - kFoot - 2 * kMargin) / up);
  height_ = std::max(kLeastHeight, up * unitsPerMeter_ + 2 * kMargin + kFoot);
  constexpr double kTallest = 1.6;  // Of a phone's map, times its width.
  narrowWidth_ = std::clamp(across * unitsPerMeter_ + 2 * kMargin, height_ / kTallest, kWidth);
  const double middleX = (frame.west + frame.east) / 2, middleY = (frame.south + frame.north) / 2;
  for (Point& place : places_) {
    place = {kWidth / 2 + (place.x - middleX) * unitsPerMeter_,
             (height_ - kFoot) / 2 - (place.y - middleY) * unitsPerMeter_};
  }
  const double unit = unitSize(FigureTexts::Format::speed);
  const SegmentFigures& coloured = day.totals.lifts > 0 ? day.totals.run : day.totals.all;
  const double top = std::max(coloured.maxSpeedMetersPerSecond, unit);
  fastest_ = std::ceil(top / unit / 10) * 10 * unit;
}

std::vector<Point> TrackMap::placesOf(const DaySegment& segment) const {
  // A segment's line continues to the next one's first fix, so that there is no gap.
  const std::size_t end = std::min(segment.endSample + 1, places_.size());
  return {places_.begin() + static_cast<std::ptrdiff_t>(segment.firstSample),
          places_.begin() + static_cast<std::ptrdiff_t>(end)};
}

int TrackMap::speedClass(double speed) const {
  return std::clamp(static_cast<int>(speed / fastest_ * kSpeedClasses), 0, kSpeedClasses - 1);
}

bool TrackMap::isColoured(SegmentKind kind) const {
  return kind == SegmentKind::run || (kind == SegmentKind::walk && day_.totals.lifts == 0);
}

std::string TrackMap::runElements(const DaySegment& segment) const {
  const auto places = placesOf(segment);
  std::string elements;
  const auto classAt = [&](std::size_t i) {
    return speedClass(day_.samples[segment.firstSample + i].speed);
  };
  for (std::size_t first = 0; first + 1 < places.size();) {
    std::size_t last = first + 1;
    const int colour = classAt(first);
    while (last + 1 < places.size() && classAt(last) == colour) ++last;
    const auto stretch = std::span(places).subspan(first, last - first + 1);
    elements += fmt::format("<path class=\"run s{}\" d=\"{}\"/>", colour,
                            pathData(simplified(stretch, tolerance_)));
    first = last;
  }
  return elements;
}

std::string TrackMap::elements() const {
  std::string walks, lifts, runs;
  for (std::size_t i = 0; i < day_.segments.size(); ++i) {
    const DaySegment& segment = day_.segments[i];
    const auto line = [&](const char* name) {
      return fmt::format("<g data-segment=\"{}\"><path class=\"{}\" d=\"{}\"/></g>", i, name,
                         pathData(simplified(placesOf(segment), tolerance_)));
    };
    if (isColoured(segment.kind)) {
      runs += fmt::format("<g data-segment=\"{}\">{}</g>", i, runElements(segment));
    } else if (segment.kind == SegmentKind::lift) {
      lifts += line("lift");
    } else if (segment.kind == SegmentKind::walk) {
      walks += line("walk");
    }
  }
  return walks + lifts + runs + badges();
}

/// The numbers stand on their lines, or beside them where many lines share a slope, and cover as
/// little of each other as can be.
std::string TrackMap::badges() const {
  constexpr std::size_t kStops = 48, kRounds = 6;
  constexpr double kAway = 0.12;   // cost of half the line's length from its middle, in badges
  constexpr double kBeside = 0.6;  // The cost of a place beside the line.
  struct Badge {
    std::size_t segment;
    std::vector<Point> stops;
    Point place, onLine;
  };
  std::vector<Badge> badges;
  for (std::size_t i = 0; i < day_.segments.size(); ++i) {
    const SegmentKind kind = day_.segments[i].kind;
    if (kind != SegmentKind::run && kind != SegmentKind::lift) continue;
    const auto places = placesOf(day_.segments[i]);
    Badge& badge = badges.emplace_back(Badge{i, {}, {}, {}});
    for (std::size_t stop = 0; stop <= kStops; ++stop) {
      badge.stops.push_back(places[stop * (places.size() - 1) / kStops]);
    }
  }
  const auto isInside = [&](Point place) {
    return place.x > kBadgeRoom && place.x < kWidth - kBadgeRoom && place.y > kBadgeRoom &&
           place.y < height_ - kFoot - kBadgeRoom;
  };
  // Each badge in turn gives way to all others: the first ones did not know those placed later.
  for (std::size_t round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < badges.size(); ++i) {
      Badge& badge = badges[i];
      std::vector<Point> others;
      for (std::size_t j = 0; j < badges.size(); ++j) {
        if (j < i || (round > 0 && j != i)) others.push_back(badges[j].place);
      }
      double least = std::numeric_limits<double>::infinity();
      for (std::size_t stop = 2; stop <= kStops - 2; ++stop) {
        const double away = kAway * std::abs(2.0 * static_cast<double>(stop) / kStops - 1);
        for (const double x : {0.0, -kBadgeRoom, kBadgeRoom}) {
          for (const double y : {0.0, -kBadgeRoom, kBadgeRoom}) {
            const bool isBeside = x != 0 || y != 0;
            const Point place{badge.stops[stop].x + x, badge.stops[stop].y + y};
            if (isBeside && !isInside(place)) continue;
            const double cost = overlap(place, others) + away + (isBeside ? kBeside : 0);
            if (cost >= least) continue;
            least = cost;
            badge.place = place;
            badge.onLine = badge.stops[stop];
          }
        }
      }
    }
  }
  std::string elements;
  for (const Badge& badge : badges) {
    const DaySegment& segment = day_.segments[badge.segment];
    const bool isRun = segment.kind == SegmentKind::run;
    const std::string shape =
        isRun ? fmt::format("<circle r=\"{}\"/>", kBadgeRadius)
              : fmt::format("<rect x=\"{0}\" y=\"{0}\" width=\"{1}\" height=\"{1}\" rx=\"4\"/>",
                            coordinate(1.5 - kBadgeRadius), coordinate(2 * kBadgeRadius - 3));
    elements += fmt::format(
        "<g class=\"badge {}\" data-segment=\"{}\" transform=\"translate({} {})\">"
        "<path d=\"M0 0L{} {}\"/>{}<text dy=\".36em\">{}</text></g>",
        isRun ? "of-run" : "of-lift", badge.segment, coordinate(badge.place.x),
        coordinate(badge.place.y), coordinate(badge.onLine.x - badge.place.x),
        coordinate(badge.onLine.y - badge.place.y), shape, segment.number);
  }
  return elements;
}

std::string TrackMap::outline(const std::string& runColour, const std::string& liftColour) const {
  std::string runs, lifts;
  for (const DaySegment& segment : day_.segments) {
    const bool isRun = isColoured(segment.kind);
    if (!isRun && segment.kind != SegmentKind::lift) continue;
    auto& lines = isRun ? runs : lifts;
    lines += pathData(simplified(placesOf(segment), 2 * tolerance_));
  }
  constexpr const char* kPath =
      "<path d=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"{}\" stroke-linecap=\"round\" "
      "stroke-linejoin=\"round\"{}/>";
  return fmt::format(fmt::runtime(kPath), lifts, liftColour, 2, " stroke-dasharray=\"2 6\"") +
         fmt::format(fmt::runtime(kPath), runs, runColour, 4, "");
}

std::string TrackMap::scaleBar() const {
  using Format = FigureTexts::Format;
  // Distances show one decimal, so the shortest bar is a tenth of their unit.
  const double unit = unitSize(Format::distance);
  const double wanted = kWidth / 8 / unitsPerMeter_ / unit;
  const double length = std::max(0.1, niceStep(wanted)) * unit;
  const double size = length * unitsPerMeter_;
  if (size > kWidth / 2) return {};
  const double y = height_ - 14;
  return fmt::format(
      "<g class=\"scale\"><path d=\"M16 {0}v5h{1}v-5\"/><text x=\"{2}\" y=\"{3}\">{4}</text></g>",
      coordinate(y), coordinate(size), coordinate(22 + size), coordinate(y + 5),
      escaped(figures_.plain(Format::distance, length)));
}

}  // namespace ombrix::hostapp

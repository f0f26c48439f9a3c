#pragma once

#include <array>
#include <limits>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {

/// A number that is not there.
inline constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// A place of a line; what is not there is `kNone`.
struct GeoJSONPosition {
  double longitude = kNone, latitude = kNone, altitude = kNone;
};

/// The figures of a line that stand beside its positions, one list each.
enum GeoJSONFigure {
  kSpeed,
  kCourse,
  kHorizontalAccuracy,
  kVerticalAccuracy,
  kHeartRate,
  kGeoJSONFigures
};

inline constexpr std::pair<std::string_view, GeoJSONFigure> kGeoJSONFigureNames[] = {
    {"speeds", kSpeed},
    {"courses", kCourse},
    {"horizontalAccuracies", kHorizontalAccuracy},
    {"verticalAccuracies", kVerticalAccuracy},
    {"heartRates", kHeartRate}};

/// The lists of figures, each as long as it comes.
using GeoJSONFigures = std::array<std::vector<double>, kGeoJSONFigures>;

/// Keeps a point; `figures` has one for each of the enumeration.
void keep(Track& track, const GeoJSONPosition& position, double secondsSince1970,
          std::span<const double, kGeoJSONFigures> figures);

/// Reads a document that no reader of JSON takes: places and times are found by their shape,
/// whatever the brackets and names around them have become. A damaged one costs its own point; of
/// more damage, so that nobody can tell which time belongs to which place, those between are left
/// out and counted. Linear.
void readDamagedGeoJSON(std::string_view document, Track& track);

}  // namespace ombrix::detail

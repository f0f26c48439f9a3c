#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {

/// A place of a line; missing parts are `kNone`.
struct GeoJSONPosition {
  double longitude = kNone, latitude = kNone, altitude = kNone;
};

/// The figures of a line beside its positions, one list each: those of `Sensor` and these.
enum GeoJSONFigure : std::size_t {
  kSpeed = kSensors,
  kCourse,
  kHorizontalAccuracy,
  kVerticalAccuracy,
  kGeoJSONFigures
};

/// The names of the lists: first our own, then those of other programs.
inline constexpr std::pair<std::string_view, std::size_t> kGeoJSONFigureNames[] = {
    {"heartRates", kHeartRate},
    {"cadences", kCadence},
    {"powers", kPower},
    {"temperatures", kTemperature},
    {"distances", kDistance},
    {"speeds", kSpeed},
    {"courses", kCourse},
    {"horizontalAccuracies", kHorizontalAccuracy},
    {"verticalAccuracies", kVerticalAccuracy},
    {"heart", kHeartRate},
    {"hearts", kHeartRate},
    {"heartrates", kHeartRate},
    {"cads", kCadence},
    {"atemps", kTemperature}};

/// The lists of figures, each as long as it comes.
using GeoJSONFigures = std::array<std::vector<double>, kGeoJSONFigures>;

/// Keeps a point; `figures` has one for each of the enumeration.
void keep(Track& track, const GeoJSONPosition& position, double secondsSince1970,
          std::span<const double, kGeoJSONFigures> figures);

/// Reads a document that no JSON reader accepts: places and times are found by their shape, even if
/// the brackets and names around them are damaged. A damaged place or time costs its own point.
/// With more damage, when it is unclear which time belongs to which place, the points in between
/// are left out and counted. Linear.
void readDamagedGeoJSON(std::string_view document, Track& track);

}  // namespace ombrix::detail

#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {

/// A place of a line; what is not there is `kNone`.
struct GeoJSONPosition {
  double longitude = kNone, latitude = kNone, altitude = kNone;
};

/// The figures of a line that stand beside its positions, one list each: those of `Sensor` and
/// these.
enum GeoJSONFigure : std::size_t {
  kSpeed = kSensors,
  kCourse,
  kHorizontalAccuracy,
  kVerticalAccuracy,
  kGeoJSONFigures
};

/// What the lists are called: first as they are written, then by others.
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

/// Reads a document that no reader of JSON takes: places and times are found by their shape,
/// whatever the brackets and names around them have become. A damaged one costs its own point; of
/// more damage, so that nobody can tell which time belongs to which place, those between are left
/// out and counted. Linear.
void readDamagedGeoJSON(std::string_view document, Track& track);

}  // namespace ombrix::detail

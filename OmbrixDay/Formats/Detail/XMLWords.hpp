#pragma once

#include <string_view>
#include <utility>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {

/// Of the elements that only our own files have.
inline constexpr std::string_view kOwnNamespace = "urn:ombrix:track:1";

/// Elements of points in GPX and TCX that hold a sensor's value; the heart rate of TCX has one more
/// level.
inline constexpr std::pair<std::string_view, Sensor> kSensorElements[] = {
    {"hr", kHeartRate},      {"cad", kCadence},
    {"Cadence", kCadence},   {"RunCadence", kCadence},
    {"power", kPower},       {"PowerInWatts", kPower},
    {"Watts", kPower},       {"atemp", kTemperature},
    {"distance", kDistance}, {"DistanceMeters", kDistance}};

/// Elements of laps in TCX and its activity extension.
inline constexpr std::pair<std::string_view, double Lap::*> kLapElements[] = {
    {"TotalTimeSeconds", &Lap::seconds}, {"DistanceMeters", &Lap::distanceMeters},
    {"MaximumSpeed", &Lap::maxSpeed},    {"Calories", &Lap::kilocalories},
    {"Cadence", &Lap::averageCadence},   {"AvgRunCadence", &Lap::averageCadence},
    {"AvgSpeed", &Lap::averageSpeed},    {"MaxBikeCadence", &Lap::maxCadence},
    {"MaxRunCadence", &Lap::maxCadence}, {"AvgWatts", &Lap::averagePower},
    {"MaxWatts", &Lap::maxPower}};

/// The words of TCX for `LapTrigger`, in its order.
inline constexpr std::string_view kLapTriggers[] = {"Manual", "Distance", "Location", "Time",
                                                    "HeartRate"};
inline constexpr std::string_view kRest = "Resting";

/// The words of TCX for a sport, and those of `Track::sport`; others are "Other".
inline constexpr std::pair<std::string_view, std::string_view> kSports[] = {{"Running", "running"},
                                                                            {"Biking", "cycling"}};

}  // namespace ombrix::detail

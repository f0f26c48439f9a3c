#pragma once

#include <string_view>
#include <utility>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {

/// Of the elements that only our own files have.
inline constexpr std::string_view kOwnNamespace = "urn:ombrix:track:1";

/// Elements of points in GPX and TCX that hold a sensor's value; the heart rate of TCX has one more
/// level. The last one of a point counts: ours stand behind others' and hold what theirs round.
inline constexpr std::pair<std::string_view, Sensor> kSensorElements[] = {
    {"hr", kHeartRate},           {"heartrate", kHeartRate},
    {"heartRate", kHeartRate},    {"cad", kCadence},
    {"Cadence", kCadence},        {"RunCadence", kCadence},
    {"cadence", kCadence},        {"power", kPower},
    {"PowerInWatts", kPower},     {"Watts", kPower},
    {"atemp", kTemperature},      {"distance", kDistance},
    {"DistanceMeters", kDistance}};

/// Elements of laps in TCX, its activity extension, and ours.
inline constexpr std::pair<std::string_view, double Lap::*> kLapElements[] = {
    {"TotalTimeSeconds", &Lap::seconds},
    {"DistanceMeters", &Lap::distanceMeters},
    {"MaximumSpeed", &Lap::maxSpeed},
    {"Calories", &Lap::kilocalories},
    {"Cadence", &Lap::averageCadence},
    {"AvgRunCadence", &Lap::averageCadence},
    {"AvgSpeed", &Lap::averageSpeed},
    {"MaxBikeCadence", &Lap::maxCadence},
    {"MaxRunCadence", &Lap::maxCadence},
    {"AvgWatts", &Lap::averagePower},
    {"MaxWatts", &Lap::maxPower},
    {"calories", &Lap::kilocalories},
    {"averageHeartRate", &Lap::averageHeartRate},
    {"maxHeartRate", &Lap::maxHeartRate},
    {"averageCadence", &Lap::averageCadence},
    {"maxCadence", &Lap::maxCadence},
    {"averagePower", &Lap::averagePower},
    {"maxPower", &Lap::maxPower}};

/// The words of TCX for `LapTrigger`, in its order.
inline constexpr std::string_view kLapTriggers[] = {"Manual", "Distance", "Location", "Time",
                                                    "HeartRate"};
inline constexpr std::string_view kRest = "Resting";

/// The words of TCX for a sport, and those of `Track::sport`; others are "Other".
inline constexpr std::pair<std::string_view, std::string_view> kSports[] = {{"Running", "running"},
                                                                            {"Biking", "cycling"}};

}  // namespace ombrix::detail

#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixDay/Formats/Track.hpp"

namespace ombrix::testing {

inline constexpr TrackFormat kWritten[] = {TrackFormat::csv, TrackFormat::gpx, TrackFormat::tcx,
                                           TrackFormat::geoJSON};
inline constexpr double kNoon = 1'772'366'400;  // 2026-03-01 12:00:00 UTC

inline Track read(std::string_view text, TrackFormat format) {
  return readTrack(platform::bytesOf(text), format);
}

inline std::string told(const std::vector<LeftOut>& left) {
  std::string all;
  for (const LeftOut& each : left) all += fmt::format("{} {}, ", each.what, each.count);
  return all;
}

/// Every figure has few enough decimals for every format; some are unknown.
inline Track sampleTrack() {
  Track track{.name = "Grün & <Weiß>",
              .laps = {{.begin = platform::dateSince1970(kNoon)},
                       {.begin = platform::dateSince1970(kNoon + 3)}}};
  for (int i = 0; i < 6; ++i) {
    CLLocation fix{.coordinate = {-46.5 + i / 64.0, i % 2 ? 179.984375 : -0.015625},
                   .altitude = i == 2 ? -3.25 : 2000.5 + i,
                   .timestamp = platform::dateSince1970(kNoon + i + (i == 4 ? 0.5 : 0))};
    if (i != 1) fix.speed = 12.25 * i;
    if (i != 3) fix.course = 359.5;
    fix.horizontalAccuracy = 4.5;
    fix.verticalAccuracy = i >= 4 ? -1 : 8;
    if (i == 4) fix.altitude = 0;  // none
    track.fixes.push_back(fix);
    if (i != 2) track.heartRates.push_back({fix.timestamp, 60.0 + i});
  }
  return track;
}

/// The same with all that a file may hold; recording stopped within a lap and between two.
inline Track richTrack() {
  Track track = sampleTrack();
  track.sport = "backcountry_skiing";
  track.notes = "Powder\nall day";
  track.breaks = {2, 3};
  for (std::size_t i = 0; i < track.fixes.size(); ++i) {
    const platform::Date time = track.fixes[i].timestamp;
    const auto value = static_cast<double>(i);
    if (i % 2 == 0) track.cadences.push_back({time, 80.5 + value});
    if (i % 3 == 0) track.powers.push_back({time, 200 + value});
    if (i > 1) track.temperatures.push_back({time, value - 4.5});
    track.distances.push_back({time, 1.25 + 10 * value});
  }
  Lap& first = track.laps[0];
  first = {.begin = first.begin,
           .seconds = 61.5,
           .distanceMeters = 432.25,
           .kilocalories = 33,
           .averageSpeed = 7,
           .maxSpeed = 12.5,
           .averageHeartRate = 121,
           .maxHeartRate = 150,
           .averageCadence = 70,
           .maxCadence = 90,
           .averagePower = 180,
           .maxPower = 300,
           .isRest = true,
           .trigger = LapTrigger::distance,
           .notes = "steep"};
  Lap& second = track.laps[1];
  second = {.begin = second.begin, .seconds = 2, .distanceMeters = 10, .kilocalories = 0};
  return track;
}

}  // namespace ombrix::testing

#pragma once

// A synthetic day's track for the track benchmarks, as fixes and as text in two forms.

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "OmbrixCore/Location/CLLocation.hpp"

namespace ombrix::bench {

using Columns = std::array<double, 8>;

inline constexpr std::array<int, 8> kWritersDecimals = {6, 6, 6, 6, 1, 6, 1, 1};

inline CLLocation locationFrom(const Columns& columns) {
  CLLocation fix;
  fix.timestamp = platform::dateSince1970(columns[0]);
  fix.coordinate = {columns[1], columns[2]};
  fix.altitude = columns[3];
  fix.course = columns[4];
  fix.speed = columns[5];
  fix.verticalAccuracy = columns[6];
  fix.horizontalAccuracy = columns[7];
  return fix;
}

inline Columns columnsOf(const CLLocation& fix) {
  return {platform::timeIntervalSince1970(fix.timestamp),
          fix.coordinate.latitude,
          fix.coordinate.longitude,
          fix.altitude,
          fix.course,
          fix.speed,
          fix.verticalAccuracy,
          fix.horizontalAccuracy};
}

/// Fixes a second apart, with the spread of values that a day on a mountain has.
inline std::vector<CLLocation> makeTrack(std::size_t count) {
  std::mt19937_64 random(1);
  const auto within = [&random](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  std::vector<CLLocation> track;
  track.reserve(count);
  Columns now = {1.7e9, 46.5, 9.8, 1900, 0, 0, 0, 0};
  for (std::size_t i = 0; i < count; ++i) {
    now[0] += 1;
    now[1] += within(-1e-4, 1e-4);
    now[2] += within(-1e-4, 1e-4);
    now[3] += within(-5, 5);
    now[4] = within(0, 360);
    now[5] = within(0, 30);
    now[6] = within(3, 13);
    now[7] = within(3, 23);
    track.push_back(locationFrom(now));
  }
  return track;
}

/// The track as text: as the writer writes it, or with 1 to 12 decimals each.
inline std::string makeText(const std::vector<CLLocation>& track, bool anyDecimals) {
  std::mt19937_64 random(2);
  std::string text;
  for (const CLLocation& fix : track) {
    const Columns columns = columnsOf(fix);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      char field[64];
      const int decimals =
          anyDecimals ? 1 + static_cast<int>(random() % (i == 0 ? 6 : 12)) : kWritersDecimals[i];
      const int size = std::snprintf(field, sizeof field, "%.*f", decimals, columns[i]);
      text.append(field, static_cast<std::size_t>(size));
      text += i + 1 < columns.size() ? ',' : '\n';
    }
  }
  return text;
}

}  // namespace ombrix::bench

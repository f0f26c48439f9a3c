#pragma once

#include <utility>

#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix {

/// The kinds of lengths in a day of skiing.
enum class SkiMeasurement : int {
  distance = 0,
  altitude = 1,
  vertical = 2,
  altitudeChange = 3,
  totalVertical = 4,
  seasonVertical = 5,
  dailyVertical = 6,
  depth = 7,
};

}  // namespace ombrix

template <>
struct ombrix::platform::RawValues<ombrix::SkiMeasurement> {
  using enum SkiMeasurement;
  static constexpr std::pair<SkiMeasurement, int> table[] = {
      {distance, 0},      {altitude, 1},       {vertical, 2},      {altitudeChange, 3},
      {totalVertical, 4}, {seasonVertical, 5}, {dailyVertical, 6}, {depth, 7},
  };
};

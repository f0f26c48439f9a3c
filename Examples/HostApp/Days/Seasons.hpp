#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Examples/HostApp/Days/RecentDays.hpp"

namespace ombrix::hostapp {

/// The days of one winter anywhere: across the turn of the year in the north, within a year in the
/// south.
struct Season {
  std::string name;  ///< "2023/24", or "2024" for days of one year; of two seasons in
                     ///< one year "2024-01/04" and "2024-12".
  std::vector<RememberedDay> days;  ///< The latest one first.

  [[nodiscard]] double descentMeters() const;
  [[nodiscard]] double distanceMeters() const;
  [[nodiscard]] std::uint64_t runs() const;
  [[nodiscard]] double maxSpeedMetersPerSecond() const;
};

/// The days by season, the latest one first: a new season begins after four months without a day,
/// and at the latest a year after the season's first day.
std::vector<Season> seasonsOf(std::vector<RememberedDay> days);

}  // namespace ombrix::hostapp

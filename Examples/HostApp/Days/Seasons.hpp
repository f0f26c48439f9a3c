#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Examples/HostApp/Days/RecentDays.hpp"

namespace ombrix::hostapp {

/// The days of one winter, wherever it was: the one that goes on across the year's end, or within
/// the year on the southern half of the globe.
struct Season {
  std::string name;  ///< "2023/24", or "2024" for days of one year; of two seasons in
                     ///< one year "2024-01/04" and "2024-12".
  std::vector<RememberedDay> days;  ///< The latest one first.

  [[nodiscard]] double descentMeters() const;
  [[nodiscard]] double distanceMeters() const;
  [[nodiscard]] std::uint64_t runs() const;
  [[nodiscard]] double maxSpeedMetersPerSecond() const;
};

/// The days by season, the latest one first: a new season begins where no day was kept for four
/// months, and a year after its first day at the latest.
std::vector<Season> seasonsOf(std::vector<RememberedDay> days);

}  // namespace ombrix::hostapp

#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "OmbrixCore/Location/CLLocation.hpp"

namespace ombrix::hostapp {

/// The figures of one recorded day, over the fixes that count in statistics.
struct DaySummary {
  std::size_t rows = 0;          ///< Fixes read from the file.
  std::size_t skipped = 0;       ///< Rows of the file that are no fix.
  std::size_t usedForStats = 0;  ///< Fixes that the figures below are taken over.
  std::size_t offGlobe = 0;      ///< Fixes that cannot be (see `isOnGlobe`) and count nowhere.
  std::optional<platform::Date> startTime, endTime;  ///< Nothing when no fix is used.
  double distanceMeters = 0;  ///< Along the geodesics between consecutive used fixes.
  double ascentMeters = 0;    ///< Sum of all rises between consecutive used fixes.
  double descentMeters = 0;   ///< Sum of all drops, as a positive number.
  double maxSpeedMetersPerSecond = 0;
  double averageSpeedMetersPerSecond = 0;  ///< Distance over span; 0 without a span.
  std::optional<double> minAltitudeMeters, maxAltitudeMeters;

  /// Seconds from the first to the last used fix.
  [[nodiscard]] double spanSeconds() const;
};

/// Whether all eight numbers of a fix, as a file holds them, are finite.
bool isFinite(const CLLocation& fix);

/// Whether a fix can have been recorded at all: its numbers are finite, latitude and longitude are
/// within 90 and 180 degrees, it lies within 100 km of sea level, its time is in the years 1 to
/// 9999, and it is too slow to leave the globe (11,186 m/s).
bool isOnGlobe(const CLLocation& fix);

/// Which fixes the figures are taken over, of those that are on the globe.
enum class FixFilter { accurateForStats, all };

/// Measures a day. `fixes` in the order of recording; `skipped` is passed on.
DaySummary summarize(std::span<const CLLocation> fixes, std::size_t skipped, FixFilter filter);

/// The summary as one JSON object on one line; values that are not there or not finite are null.
/// @param heartRate A JSON value for a last member "heartRate"; empty for none.
std::string toJSON(const DaySummary& summary, const std::string& heartRate = {});

}  // namespace ombrix::hostapp

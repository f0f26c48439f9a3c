#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "OmbrixDay/Formats/Track.hpp"

namespace ombrix::detail {

// Each reads into an empty track. What is thrown leaves there what was read before, or beside, the
// fault.
void readGPX(platform::DataView bytes, Track& track);
void readTCX(platform::DataView bytes, Track& track);
void readFIT(platform::DataView bytes, Track& track);
void readGeoJSON(platform::DataView bytes, Track& track);
std::string writeGPX(const Track& track);
std::string writeTCX(const Track& track);
std::string writeGeoJSON(const Track& track);

/// The time that a text of ISO 8601 names: date and time to seconds or finer, with "Z", an offset
/// or nothing, which means UTC. Nothing for any other text.
std::optional<platform::Date> timeFromText(std::string_view text);

/// The text of a time in UTC, to microseconds where it has them. Empty outside the years 0 to 9999.
std::string timeText(platform::Date time);

/// A number without exponent, at most `decimals` of them, none at the end that is zero.
std::string decimalText(double value, int decimals);

/// Whether a fix has a place, an altitude and a time that can be written.
bool isWritable(const CLLocation& fix);

/// A fix with the heart rate of the same instant, if there is one, or a heart rate alone.
struct TrackPoint {
  const CLLocation* fix = nullptr;
  const HeartRate* heartRate = nullptr;
  [[nodiscard]] platform::Date time() const { return fix ? fix->timestamp : heartRate->time; }
};

/// All writable fixes and heart rates, merged by time where both are in order.
std::vector<TrackPoint> pointsOf(const Track& track);

/// Keeps a point that was read; counts it as skipped without a time, or with neither a place on the
/// globe nor a heart rate. Figures that are negative, not finite or beyond 1e9 become unknown, and
/// so does an altitude that is not finite or as large: 0 without an accuracy, see `hasAltitude`.
/// @throws TrackFormatError when there are too many
void keep(Track& track, const CLLocation* fix, std::optional<double> heartRate,
          std::optional<platform::Date> time);

}  // namespace ombrix::detail

#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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

/// Whether there is a text for a time.
bool hasTimeText(platform::Date time);

/// What stands at a point beside the fix; the last two only at points without one.
enum Sensor : std::size_t {
  kHeartRate,
  kCadence,
  kPower,
  kTemperature,
  kDistance,
  kLoneAltitude,
  kLoneSpeed,
  kSensors
};

/// A number that is not there.
inline constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// One value a sensor; `kNone` for none.
using SensorValues = std::array<double, kSensors>;
inline constexpr SensorValues kNoSensorValues = {kNone, kNone, kNone, kNone, kNone, kNone, kNone};

/// Whether a value can be that of a sensor: finite and, but for temperatures and altitudes, not
/// negative.
bool isSensorValue(std::size_t sensor, double value);

/// The readings of a sensor that a track keeps beside its heart rates.
std::vector<SensorReading>& readingsOf(Track& track, std::size_t sensor);
const std::vector<SensorReading>& readingsOf(const Track& track, std::size_t sensor);

/// A fix with what sensors told at the same instant, or that alone.
struct TrackPoint {
  const CLLocation* fix = nullptr;
  platform::Date time;
  SensorValues sensors = kNoSensorValues;
  bool beginsSegment = false;  ///< Recording had stopped between the fix before and this one.
};

/// All points of a track that can be written, merged by time where fixes and readings are in order.
class PointSequence {
 public:
  /// @param track Must outlive the sequence.
  explicit PointSequence(const Track& track) : track_(track) {}

  /// @return false behind the last point
  bool next(TrackPoint& point);

 private:
  std::optional<SensorReading> reading(std::size_t sensor);

  const Track& track_;
  std::size_t nextFix_ = 0, nextBreak_ = 0;
  std::array<std::size_t, kSensors> nextReading_{};
  bool hasFix_ = false;
};

/// The laps of a track that can be written: each begins later than the one before.
std::vector<Lap> lapsInOrder(const Track& track);

/// A track's laps as they are written: in order of time, each with the totals that a lap must have;
/// one over all points where the track has none.
std::vector<Lap> writtenLaps(const Track& track);

/// Keeps a point that was read, which has no place where its fix is off the globe: altitude and
/// speed are readings then. Counts it as skipped without a time, or with neither a place nor a
/// sensor's value. Figures that are negative, not finite or beyond 1e9 become unknown,
/// and so does an altitude that is not finite or as large: 0 without an accuracy, see
/// `hasAltitude`.
/// @throws TrackFormatError when there are too many
void keep(Track& track, const CLLocation& fix, SensorValues sensors,
          std::optional<platform::Date> time);

// What a track has no place for.
inline constexpr std::string_view kWaypoints = "Waypoints", kRoutes = "Routes",
                                  kDivision = "Division into tracks",
                                  kOtherDetails = "Other details";

/// The coordinate of a fix that has no place.
inline constexpr CLLocationCoordinate2D kNowhere = {kNone, kNone};

/// Counts what is passed over.
void passOver(Track& track, std::string_view what, std::size_t count = 1);

/// Says that recording had stopped before the next fix that is kept.
void beginSegment(Track& track);

/// Keeps a lap, as long as there are not too many.
void keep(Track& track, const Lap& lap);

}  // namespace ombrix::detail

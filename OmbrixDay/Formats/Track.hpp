#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix {

/// What a sensor told at an instant.
struct SensorReading {
  platform::Date time;
  double value = 0;
};

/// What made a device end a lap.
enum class LapTrigger { manual, distance, location, time, heartRate };

/// A part of a recording for which its device keeps totals. Negative totals are unknown.
struct Lap {
  platform::Date begin;
  double seconds = -1;  ///< Without the time that the device stood still.
  double distanceMeters = -1;
  double kilocalories = -1;
  double averageSpeed = -1, maxSpeed = -1;          ///< In metres a second.
  double averageHeartRate = -1, maxHeartRate = -1;  ///< Beats a minute.
  double averageCadence = -1, maxCadence = -1;      ///< As `Track::cadences`.
  double averagePower = -1, maxPower = -1;          ///< In watts.
  bool isRest = false;
  LapTrigger trigger = LapTrigger::manual;
  std::string notes = {};

  bool operator==(const Lap&) const = default;
};

/// Something of a recording that a file, or a track, does not hold.
struct LeftOut {
  std::string_view what;  ///< Such as "Laps": the label of a figure.
  std::size_t count = 0;
};

/// A recording, whatever file it came from. Readings and laps are in the order of the file; which
/// format holds what, says docs/day.md.
struct Track {
  std::string name;
  std::string sport = {};                         ///< A word as "running"; any, or none.
  std::string notes = {};                         ///< What its owner wrote about it.
  std::vector<CLLocation> fixes = {};             ///< Unknown figures are -1, altitudes 0.
  std::vector<std::size_t> breaks = {};           ///< Fixes before which recording had stopped.
  std::vector<HeartRate> heartRates = {};         ///< At fixes and between them.
  std::vector<SensorReading> cadences = {};       ///< Revolutions, or steps of one foot, a minute.
  std::vector<SensorReading> powers = {};         ///< Watts.
  std::vector<SensorReading> temperatures = {};   ///< Degrees Celsius.
  std::vector<SensorReading> distances = {};      ///< Metres from the beginning, by the device.
  std::vector<SensorReading> loneAltitudes = {};  ///< Metres, where there was no place,
  std::vector<SensorReading> loneSpeeds = {};     ///< and metres a second.
  std::vector<Lap> laps = {};
  std::size_t skipped = 0;           ///< Points without a time, or with nothing to keep.
  std::string fault = {};            ///< Why a file could not be read whole; empty if it was.
  std::vector<LeftOut> unread = {};  ///< What else its file holds, for which a track has no place.
};

/// The files that tracks are kept in. Which holds what, says docs/day.md.
enum class TrackFormat { csv, gpx, tcx, geoJSON, fit };

/// What a format is called, as in "GeoJSON".
[[nodiscard]] std::string_view nameOf(TrackFormat format);

/// Bytes that are not a track of the format, or a format that is not written.
class TrackFormatError : public platform::Error {
 public:
  using Error::Error;
};

inline constexpr std::size_t kMostTrackBytes = std::size_t{1} << 30;
inline constexpr std::size_t kMostTrackPoints = 5'000'000;
inline constexpr std::size_t kMostTrackLaps = 100'000;

/// The format that the ending of a file's name stands for, in any case: ".csv", ".gpx", ".tcx",
/// ".geojson", ".json", ".fit". Nothing for another ending.
[[nodiscard]] std::optional<TrackFormat> trackFormatOfFile(std::string_view name);

/// The format that the bytes of a track look like, by their beginning; CSV for what looks like none
/// of the others.
[[nodiscard]] TrackFormat trackFormatOfBytes(platform::DataView bytes);

/// Reads a track. Of a file that is damaged, cut off, too long for the memory or has more than
/// `kMostTrackPoints`, what could be read is returned, and `Track::fault` says what is wrong. A
/// single bad byte costs no more than the point it is in, a lost line end of CSV the two beside it.
/// (A CSV file that is cut between two rows cannot be told from a whole one.)
/// @throws TrackFormatError for bytes that are not such a file, are larger than `kMostTrackBytes`,
///   or are damaged so that no point can be read
[[nodiscard]] Track readTrack(platform::DataView bytes, TrackFormat format);

/// Reads a CSV track from a stream block by block: no more than its fixes is held in memory.
/// Where the stream fails before its end, what came before is returned with a `Track::fault`.
/// @throws TrackFormatError as above
[[nodiscard]] Track readCSVTrack(platform::InputStream& stream);

/// How many of a track's fixes `writeTrack` writes: those whose place, altitude and time are finite
/// and can be.
[[nodiscard]] std::size_t writableFixes(const Track& track);

/// Whether a file of the format would hold anything: a fix, or in TCX laps or a sensor's reading.
[[nodiscard]] bool isWorthWriting(const Track& track, TrackFormat format);

/// What `writeTrack` leaves out because the format has no place for it: in GPX and GeoJSON, for
/// one, what sensors told where there was no fix; and what was unread. Empty where all is written.
[[nodiscard]] std::vector<LeftOut> leftOut(const Track& track, TrackFormat format);

/// Whether what `writeTrack` makes of a track holds all of another recording: a fix of the same
/// time, place and altitude for each of its fixes, every figure that it knows, its readings, laps,
/// breaks and texts, but for what formats round. Nothing holds what is unread or skipped in it.
[[nodiscard]] bool holdsAll(const Track& track, TrackFormat format, const Track& other);

/// Writes the fixes that can be written; other figures of theirs that are not finite become
/// unknown.
/// @throws TrackFormatError for FIT, which is read only
[[nodiscard]] std::string writeTrack(const Track& track, TrackFormat format);

/// Reads one format and writes another one. Figures that both can hold come out as they went in;
/// a damaged file is converted as far as it can be read.
/// @throws TrackFormatError as above
[[nodiscard]] std::string convertTrack(platform::DataView bytes, TrackFormat from, TrackFormat to);

}  // namespace ombrix

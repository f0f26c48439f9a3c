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

/// A recording, whatever file it came from.
struct Track {
  std::string name;
  std::vector<CLLocation> fixes;      ///< In file order; unknown figures are -1, altitudes 0.
  std::vector<HeartRate> heartRates;  ///< In the order of the file.
  std::vector<platform::Date> laps;   ///< When each lap began.
  std::size_t skipped = 0;            ///< Points without a place or a time.
  std::string fault = {};             ///< Why a file could not be read whole; empty if it was.
};

/// The files that tracks are kept in. Which holds what, says docs/day.md.
enum class TrackFormat { csv, gpx, tcx, geoJSON, fit };

/// Bytes that are not a track of the format, or a format that is not written.
class TrackFormatError : public platform::Error {
 public:
  using Error::Error;
};

inline constexpr std::size_t kMostTrackBytes = std::size_t{1} << 30;
inline constexpr std::size_t kMostTrackPoints = 5'000'000;

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

/// How many of a track's heart rates `writeTrack` leaves out: all in CSV, those of no fix's instant
/// in GPX and GeoJSON, where only points with a place stand.
[[nodiscard]] std::size_t heartRatesLeftOut(const Track& track, TrackFormat format);

/// Writes the fixes that can be written; other figures of theirs that are not finite become
/// unknown.
/// @throws TrackFormatError for FIT, which is read only
[[nodiscard]] std::string writeTrack(const Track& track, TrackFormat format);

/// Reads one format and writes another one. Figures that both can hold come out as they went in;
/// a damaged file is converted as far as it can be read.
/// @throws TrackFormatError as above
[[nodiscard]] std::string convertTrack(platform::DataView bytes, TrackFormat from, TrackFormat to);

}  // namespace ombrix

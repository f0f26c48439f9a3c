#pragma once

#include <optional>
#include <span>
#include <string>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixDay/Formats/Track.hpp"

namespace ombrix::hostapp {

/// Thrown for a track that does not fit into memory.
class TrackNeedsMemory : public CommandFailure {
 public:
  using CommandFailure::CommandFailure;
};

/// Reads a track from a file, or from standard input for "-"; failures end the command. Of CSV only
/// the fixes are held in memory. Of a damaged file what can be read is returned; see
/// `failIfIncomplete`.
/// @param format Empty: chosen by the name's ending, otherwise by how the bytes begin.
Track readTrackFile(const std::string& path, std::optional<TrackFormat> format = std::nullopt);

/// The same; a file without a single fix ends the command, too.
Track readTrackWithFixes(const std::string& path, std::optional<TrackFormat> format = std::nullopt);

/// Ends the command if a track could not be read whole, and says why; to be called when the
/// readable part has been shown or written.
/// @param fault That of the track.
void failIfIncomplete(const std::string& path, const std::string& fault);

/// The format that a file's contents look like, whatever its name.
TrackFormat trackFormatOfFileContents(const std::string& path);

/// The data left out, with counts, as in "Laps (2), Name".
std::string leftOutText(std::span<const LeftOut> leftOut);

/// Reports in one line which data of a track was not written to a file of a format; prints nothing
/// if all was.
void tellLeftOut(const std::string& out, TrackFormat format, std::span<const LeftOut> leftOut);

/// Writes a track file in the format "CSV", replacing one that is there; see `writeFile`.
void writeTrack(const std::string& path, std::span<const CLLocation> fixes);

/// The format that a word of the command line means ("csv", "gpx", "tcx", "geojson", "fit"); empty
/// for an empty word.
std::optional<TrackFormat> trackFormatNamed(const std::string& word);

/// The words of `trackFormatNamed`, and those of the formats that are written, too.
inline constexpr const char* kTrackFormatWords[] = {"csv", "gpx", "tcx", "geojson", "fit"};
inline constexpr std::span<const char* const> kWrittenFormatWords{kTrackFormatWords, 4};

}  // namespace ombrix::hostapp

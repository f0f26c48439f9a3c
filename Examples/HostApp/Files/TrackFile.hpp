#pragma once

#include <optional>
#include <span>
#include <string>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixDay/Formats/Track.hpp"

namespace ombrix::hostapp {

/// A track for which there is not memory enough.
class TrackNeedsMemory : public CommandFailure {
 public:
  using CommandFailure::CommandFailure;
};

/// Reads a track from a file, or from standard input for "-"; failures end the command. Of CSV only
/// the fixes are held in memory. Of a damaged file what can be read is returned; see
/// `failIfIncomplete`.
/// @param format Nothing: by the ending of the name, else by how the bytes begin.
Track readTrackFile(const std::string& path, std::optional<TrackFormat> format = std::nullopt);

/// The same; a file without a single fix ends the command, too.
Track readTrackWithFixes(const std::string& path, std::optional<TrackFormat> format = std::nullopt);

/// Ends the command where a track could not be read whole, and says why: for when what could be
/// read has been shown or written.
/// @param fault That of the track.
void failIfIncomplete(const std::string& path, const std::string& fault);

/// The format that a file's contents look like, whatever its name.
TrackFormat trackFormatOfFileContents(const std::string& path);

/// What is left out, with its counts, as in "Laps (2), Name".
std::string leftOutText(std::span<const LeftOut> leftOut);

/// Tells in one line what of a track was not written to a file of a format; nothing for none.
void tellLeftOut(const std::string& out, TrackFormat format, std::span<const LeftOut> leftOut);

/// Writes a track file in the format "CSV", replacing one that is there; see `writeFile`.
void writeTrack(const std::string& path, std::span<const CLLocation> fixes);

/// The format that a word of the command line means ("csv", "gpx", "tcx", "geojson", "fit"), or an
/// empty one for nothing.
std::optional<TrackFormat> trackFormatNamed(const std::string& word);

/// The words of `trackFormatNamed`, and those of the formats that are written, too.
inline constexpr const char* kTrackFormatWords[] = {"csv", "gpx", "tcx", "geojson", "fit"};
inline constexpr std::span<const char* const> kWrittenFormatWords{kTrackFormatWords, 4};

}  // namespace ombrix::hostapp

#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "OmbrixCore/Location/CLLocation.hpp"

namespace ombrix::hostapp {

/// A track as it was read.
struct Track {
  std::vector<CLLocation> fixes;
  std::size_t skipped = 0;  ///< Rows that are no fix.
};

/// Reads a whole track file, with a progress bar on standard error when it is long.
/// A file that is not there or cannot be read ends the command (`CommandFailure`).
Track readTrack(const std::string& path);

/// Writes a new track file, replacing one that is there (see `writeFile`); failures end the
/// command.
void writeTrack(const std::string& path, std::span<const CLLocation> fixes);

}  // namespace ombrix::hostapp

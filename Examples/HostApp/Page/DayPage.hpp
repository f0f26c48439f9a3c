#pragma once

#include <optional>
#include <string>

#include "Examples/HostApp/Days/RecordedDay.hpp"

namespace ombrix::hostapp {

/// A day as one HTML page that needs no other file and no network: figures, a map of the track,
/// profiles with a common cursor, a table of the rides, a picture to share. In the user's units and
/// language; all figures are computed here, and the page's script only shows them.
///
/// @return Nothing for a day without a fix that counts.
std::optional<std::string> dayPage(const RecordedDay& recorded);

/// Writes that page to a file, or to standard output for "-"; failures end the command.
void writeDayPage(const std::string& path, const RecordedDay& recorded);

}  // namespace ombrix::hostapp

#pragma once

#include <optional>
#include <span>
#include <string>

#include "OmbrixDay/Formats/Track.hpp"

namespace ombrix::hostapp {

/// What a command is about to write to a file.
struct NewFile {
  std::optional<TrackFormat> format = {};  ///< Its own, where it is a track.
  const Track* track = nullptr;            ///< The recording it will hold; null for none.
  std::span<const std::string> read = {};  ///< The files that it is made of.
};

/// Ends the command where the file at `out` is a recording that would be lost, as when a shell
/// replaces "*.csv" by two names. The one rule of all commands that write: a file is replaced only
/// by what holds all of it, fix by fix; see `holdsAll`. So a command can be repeated, and a longer
/// recording takes the place of its own beginning, but another device's, or one that knows more,
/// stays, and so does one that holds what is not read, as waypoints.
///
/// Refused besides: a name that is another format's, a recording that is read for something else,
/// and any file as long as `track` could not be read whole. What is no regular file, or an empty
/// one, is not looked at.
void refuseToReplace(const std::string& out, const NewFile& by);

/// The same for a page of a day, which replaces nothing but such a page.
void refuseToReplaceByPage(const std::string& out, std::span<const std::string> read = {});

/// Ends the command where two of its outputs are one file.
void refuseSameOutputs(const std::string& one, const std::string& other);

}  // namespace ombrix::hostapp

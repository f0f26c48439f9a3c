#pragma once

#include <cstdint>
#include <cstdlib>

#include "OmbrixDay/Formats/Track.hpp"

namespace ombrix::fuzz {

/// Any bytes as a track: what can be read can be written in every format and read again, and from
/// then on loses nothing.
inline void tryTrack(platform::DataView bytes, TrackFormat format) {
  Track track;
  try {
    track = readTrack(bytes, format);
  } catch (const TrackFormatError&) {
    return;
  }
  for (const TrackFormat other : {TrackFormat::gpx, TrackFormat::tcx, TrackFormat::geoJSON}) {
    const auto again = [other](const Track& from) {
      return readTrack(platform::bytesOf(writeTrack(from, other)), other);
    };
    const Track once = again(track);
    if (once.fixes.size() > track.fixes.size() || once.skipped > 0 || !once.fault.empty()) {
      std::abort();
    }
    if (again(once).fixes.size() != once.fixes.size()) std::abort();
    if (!holdsAll(track, other, once)) std::abort();
  }
}

}  // namespace ombrix::fuzz

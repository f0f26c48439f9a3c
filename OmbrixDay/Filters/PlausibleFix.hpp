#pragma once

#include "OmbrixCore/Location/CLLocation.hpp"

namespace ombrix {

/// Whether all numbers of a fix that a track file holds are finite.
[[nodiscard]] bool isFinite(const CLLocation& fix);

/// Whether a fix can have been recorded at all: its numbers are finite, latitude and longitude are
/// within 90 and 180 degrees, it lies within 100 km of sea level, its time is in the years 1 to
/// 9999, and it is too slow to leave the globe (11,186 m/s).
[[nodiscard]] bool isOnGlobe(const CLLocation& fix);

/// Whether a fix has an altitude. Receivers and files without one leave 0 with an invalid vertical
/// accuracy; any other altitude counts even without an accuracy, since few files hold accuracies.
[[nodiscard]] inline bool hasAltitude(const CLLocation& fix) {
  return fix.altitude != 0 || fix.verticalAccuracy >= 0;
}

}  // namespace ombrix

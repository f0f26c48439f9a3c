#pragma once

#include <span>

#include "OmbrixCore/Location/CLLocation.hpp"

namespace ombrix {

/// Gives speed and course to fixes of a recording that has none, from their neighbours.
///
/// A fix without a valid speed does not count in statistics, so a track from a file that holds
/// positions and times only would have no day at all. When any fix has a valid speed nothing is
/// changed: there a missing speed is the receiver's word that it did not know. Fixes that are off
/// the globe are passed over.
///
/// @param fixes In the order of recording. Each gets the distance to the fix before it over the
///   time between (m/s) and the bearing from there; the first one takes the second one's. A fix
///   whose time does not grow keeps what it has.
/// @return Whether speeds were derived.
bool deriveMissingMotion(std::span<CLLocation> fixes);

}  // namespace ombrix

#pragma once

#include <span>

#include "OmbrixCore/Location/CLLocation.hpp"

namespace ombrix {

/// Puts a whole recording in order of time; files hold tracks in any order, newest first too.
///
/// Fixes of the same time stay in their order. Last come fixes without a finite time, and a few
/// from the beginning (fewer than 64 within ten minutes) that are more than a day earlier than the
/// rest: there the device did not know the time.
///
/// @param fixes In any order.
void sortByTime(std::span<CLLocation> fixes);

/// Gives speed and course to fixes of a recording that lack them, from their neighbours.
///
/// A fix without a valid speed does not count in statistics, so a file with positions and times
/// only would give none. A fix off the globe, or too inaccurate for statistics, is skipped.
/// Implausible speeds count as missing: if over a kilometre and more all speeds together explain
/// less than half of the distance between places 20 s apart, or more than twice of it, as zeros and
/// km/h do.
///
/// @param fixes In order of time. A fix between two with speeds gets what lies between these (m/s);
///   others get the distance to the fix before over the time between, and the bearing from there.
///   The first one, and one that is more than a minute behind the fix before and nearer to the
///   next, take those to the next. A fix whose time does not grow keeps what it has.
/// @return Whether speeds were derived.
bool deriveMissingMotion(std::span<CLLocation> fixes);

}  // namespace ombrix

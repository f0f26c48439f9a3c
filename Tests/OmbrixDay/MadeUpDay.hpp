#pragma once

#include <cstdint>
#include <vector>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix::testing {

/// A made-up ski day, and what a receiver makes of it.
struct MadeUpDayOptions {
  std::uint64_t seed = 1;
  int rides = 12;            ///< Lifts, each followed by a run.
  double riseMeters = 400;   ///< Of each of them.
  double altitudeNoise = 3;  ///< metres, wandering
  double positionNoise = 3;  ///< metres on each axis, white
  bool hasHalts = false;     ///< Lifts halt, skiers stop on the slope.
  bool hasGaps = false;      ///< No reception for a while on lifts, runs and at rest.
  /// Lone wrong positions, altitudes and speeds, three wrong speeds in a row; repeated fixes.
  bool hasOutliers = false;
  bool hasSteps = false;  ///< The altimeter jumps by 25 m now and then.
  int everySeconds = 1;
  double slowestLift = 2.5, fastestLift = 6;  ///< m/s
  double slope = 0.30;                        ///< Of the lifts.
};

struct TrueSegment {
  SegmentKind kind;
  double begin, end;  ///< seconds since 1970
};

struct MadeUpDay {
  std::vector<CLLocation> fixes;
  std::vector<TrueSegment> rides;  ///< Lifts and runs, in order.
  double ascent = 0, descent = 0;  ///< metres
  double topSpeed = 0;             ///< m/s
  /// What the altimeter's wandering while at rest adds to ascent and descent, where both are taken
  /// from the means over the rests (at most 300 s beside each ride).
  double ascentNoise = 0, descentNoise = 0;
};

MadeUpDay makeUpDay(const MadeUpDayOptions& options);

}  // namespace ombrix::testing

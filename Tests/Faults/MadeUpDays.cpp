// Made-up days, whose truth is known, through noise, gaps, halts, wrong fixes and jumps of the
// altimeter: every run and lift is found, each where it was and as high as it was.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"
#include "Tests/OmbrixDay/MadeUpDay.hpp"

namespace ombrix::faults {
namespace {

using testing::MadeUpDay;
using testing::MadeUpDayOptions;

struct Hill {
  double rise;
  int rides;
  double share;  ///< How far ascent and descent may be off.
};
constexpr Hill kHills[] = {{100, 30, 0.05}, {400, 12, 0.02}, {800, 8, 0.02}};

enum Disturbance { none, halts, everything };

/// A day of one kind; its lifts are of any usual speed and slope.
MadeUpDayOptions optionsOf(const Hill& hill, double altitudeNoise, double positionNoise,
                           Disturbance disturbance, std::mt19937_64& random) {
  const auto uniform = [&random](double least, double most) {
    return least + (most - least) * static_cast<double>(random() >> 11) * 0x1p-53;
  };
  MadeUpDayOptions options{.seed = random(),
                           .rides = hill.rides,
                           .riseMeters = hill.rise,
                           .altitudeNoise = altitudeNoise,
                           .positionNoise = positionNoise};
  options.hasHalts = disturbance >= halts;
  options.hasGaps = options.hasOutliers = options.hasSteps = disturbance >= everything;
  options.slope = uniform(0.15, hill.rise > 100 ? 0.45 : 0.35);
  if (uniform(0, 1) < 0.25) {  // drag lifts
    options.slowestLift = 1.9;
    options.fastestLift = 3;
  }
  return options;
}

std::string described(const MadeUpDayOptions& options) {
  return fmt::format(
      "seed {} rise {} rides {} noise {}/{} lifts {}-{} m/s slope {}{}{}: ", options.seed,
      options.riseMeters, options.rides, options.altitudeNoise, options.positionNoise,
      options.slowestLift, options.fastestLift, options.slope, options.hasHalts ? " halts" : "",
      options.hasGaps ? " gaps outliers steps" : "");
}

/// What is wrong with the runs and lifts of a day; empty if nothing is.
std::string faultOfRides(const MadeUpDay& truth, const Day& day) {
  constexpr double kMostSeconds = 15;
  std::vector<DaySegment> rides;
  for (const DaySegment& segment : day.segments) {
    const bool isRide = segment.kind == SegmentKind::run || segment.kind == SegmentKind::lift;
    if (isRide) rides.push_back(segment);
  }
  if (rides.size() != truth.rides.size()) {
    return fmt::format("{} rides of {}", rides.size(), truth.rides.size());
  }
  std::string fault;
  for (std::size_t i = 0; i < rides.size(); ++i) {
    const auto& [kind, begin, end] = truth.rides[i];
    const double early = platform::timeIntervalSince1970(rides[i].begin) - begin;
    const double late = platform::timeIntervalSince1970(rides[i].end) - end;
    if (rides[i].kind != kind) return fmt::format("ride {} is of the other kind", i);
    if (std::abs(early) > kMostSeconds || std::abs(late) > kMostSeconds) {
      fault += fmt::format("{} {} begins {:+.0f} s, ends {:+.0f} s; ", platform::rawValue(kind), i,
                           early, late);
    }
  }
  return fault;
}

/// On how many days something held; a day on which it did not is told on standard error.
class Promise {
 public:
  explicit Promise(const char* what) : what_(what) {}

  void count(bool holds, const std::string& detail) {
    ++days_;
    held_ += holds ? 1 : 0;
    if (!holds) fmt::print(stderr, "not {}: {}\n", what_, detail);
  }
  void tell(double least, Outcomes& outcomes) const {
    outcomes.expect(static_cast<double>(held_) >= least * static_cast<double>(days_),
                    fmt::format("{}: on {} of {} days", what_, held_, days_));
  }

 private:
  const char* what_;
  std::size_t held_ = 0, days_ = 0;
};

struct Promises {
  Promise rides{"the same runs and lifts, in order, within 15 s"};
  Promise heights{"up and down within 2 %"};
  Promise smallHeights{"up and down within 5 % on a hill of 100 m"};
  Promise speed{"top speed within 2 %"};
};

void measure(const MadeUpDayOptions& options, double share, Promises& promises) {
  constexpr double kSpeedShare = 0.02;
  const MadeUpDay truth = testing::makeUpDay(options);
  const Day day = measureDay(truth.fixes);
  const std::string which = described(options), fault = faultOfRides(truth, day);
  promises.rides.count(fault.empty(), which + fault);
  const DayTotals& totals = day.totals;
  const double up = totals.all.ascentMeters / truth.ascent - 1;
  const double down = totals.all.descentMeters / truth.descent - 1;
  (options.riseMeters > 100 ? promises.heights : promises.smallHeights)
      .count(std::abs(up) <= share && std::abs(down) <= share,
             fmt::format("{}up {:+.2f} %, down {:+.2f} %, of it by noise at rest {:+.2f} and "
                         "{:+.2f} %",
                         which, 100 * up, 100 * down, 100 * truth.ascentNoise / truth.ascent,
                         100 * truth.descentNoise / truth.descent));
  const double speed = totals.run.maxSpeedMetersPerSecond / truth.topSpeed - 1;
  promises.speed.count(std::abs(speed) <= kSpeedShare,
                       fmt::format("{}{:+.2f} %", which, 100 * speed));
}

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  std::mt19937_64 random(plan.seed);
  Promises promises;
  for (std::size_t round = 0; round < plan.rounds(1, 30); ++round) {
    for (const Hill& hill : kHills) {
      for (const double altitudeNoise : {3.0, 5.0, 10.0}) {
        for (const double positionNoise : {3.0, 10.0}) {
          for (const Disturbance disturbance : {none, halts, everything}) {
            measure(optionsOf(hill, altitudeNoise, positionNoise, disturbance, random), hill.share,
                    promises);
          }
        }
      }
    }
  }
  // Noise hides some slow beginnings of lifts, and shifts the means over some rests by more than
  // the bounds are wide.
  constexpr double kLeast = 0.97;
  const double least = plan.isLong ? kLeast : 1;
  for (const Promise* each :
       {&promises.rides, &promises.heights, &promises.smallHeights, &promises.speed}) {
    each->tell(least, outcomes);
  }
}

}  // namespace ombrix::faults

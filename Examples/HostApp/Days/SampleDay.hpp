#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"

namespace ombrix::hostapp {

/// The parameters of a made-up day of skiing.
struct SampleDayOptions {
  std::uint64_t seed = 20'240'211;  ///< Equal seeds give equal days, on every machine.
  int runs = 12;                    ///< Lift rides, each followed by a run; 1 to 100.
};

/// Makes a day of skiing, one fix a second from 08:15 UTC on 2024-02-11: lifts, runs with turns,
/// pauses and lunch, with the noise of a real receiver (wandering positions, stretches of poor
/// accuracy under the lift's roof where the speed is unknown).
std::vector<CLLocation> makeSampleDay(const SampleDayOptions& options);

/// Makes the heart rates of such a day, one every five seconds: the faster the descent, the higher
/// the rate, which follows effort and rest slowly, as hearts do.
std::vector<HeartRate> makeSampleHeartRates(std::span<const CLLocation> fixes,
                                            std::uint64_t seed = SampleDayOptions{}.seed);

}  // namespace ombrix::hostapp

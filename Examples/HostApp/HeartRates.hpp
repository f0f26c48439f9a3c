#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "Examples/HostApp/DaySummary.hpp"
#include "OmbrixPlatform/Health/HKQuantitySample.hpp"

namespace ombrix::hostapp {

/// The heart rates recorded during a day.
struct HeartRateSummary {
  std::size_t samples = 0;  ///< Finite ones between the first and the last used fix.
  double averageBeatsPerMinute = 0, maxBeatsPerMinute = 0;  ///< 0 without samples.
  std::optional<double> kilocalories;  ///< The estimate for the day's span; needs a weight.
};

/// Joins heart rates to a day.
/// @param weightKilograms The user's weight, for the energy estimate.
HeartRateSummary summarizeHeartRates(std::span<const platform::HKQuantitySample> samples,
                                     const DaySummary& day, std::optional<double> weightKilograms);

/// Reads a whole heart-rate file; one that is not there or cannot be read ends the command.
std::vector<platform::HKQuantitySample> readHeartRates(const std::string& path);

/// As lines of text in the user's units and language, like `dayReport`'s.
std::string heartRateReport(const HeartRateSummary& summary);

/// As one JSON object on one line.
std::string toJSON(const HeartRateSummary& summary);

}  // namespace ombrix::hostapp

#pragma once

#include <span>
#include <string>
#include <vector>

#include "OmbrixDay/Measuring/DayMeasurer.hpp"

namespace ombrix::hostapp {

/// Reads the finite rates of a heart-rate file in order of time; a missing or unreadable file ends
/// the command.
std::vector<HeartRate> readHeartRates(const std::string& path);

/// Writes heart rates as such a file; see `writeFile`.
void writeHeartRates(const std::string& path, std::span<const HeartRate> rates);

}  // namespace ombrix::hostapp

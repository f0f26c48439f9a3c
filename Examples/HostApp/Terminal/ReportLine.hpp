#pragma once

#include <string>

#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"

namespace ombrix::hostapp {

/// A number in its format's input unit, in the user's units and language, for standard output.
std::string styledValue(OmbrixMeasurementFormatter::MeasurementFormat format, double number);

/// A span of time in seconds, alike.
std::string styledDuration(double seconds);

}  // namespace ombrix::hostapp

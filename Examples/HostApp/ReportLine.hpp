#pragma once

#include <string>
#include <string_view>

#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"

namespace ombrix::hostapp {

/// One line of a report, with its line break: the label, and what it says behind it.
std::string reportLine(std::string_view label, std::string_view shown);

/// A number in its format's input unit, in the user's units and language, for standard output.
std::string styledValue(OmbrixMeasurementFormatter::MeasurementFormat format, double number);

/// A span of time in seconds, alike.
std::string styledDuration(double seconds);

}  // namespace ombrix::hostapp

#pragma once

#include <string>
#include <string_view>

#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"

namespace ombrix::hostapp {

/// A text as it stands in HTML and in attributes between double quotes.
std::string escaped(std::string_view text);

/// A number in its format's input unit as the formatter styles it: the number in <b>, the unit in
/// <i>.
std::string valueHTML(OmbrixMeasurementFormatter::MeasurementFormat format, double number);

/// A span of time in seconds, alike.
std::string durationHTML(double seconds);

/// A number's text in the user's units and language, without markup.
std::string valueText(OmbrixMeasurementFormatter::MeasurementFormat format, double number);

/// What one of the user's units of a format is in the format's input unit: 1609.344 for miles.
double unitSize(OmbrixMeasurementFormatter::MeasurementFormat format);

}  // namespace ombrix::hostapp

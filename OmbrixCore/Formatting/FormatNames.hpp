#pragma once

#include <span>
#include <string_view>
#include <utility>

#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"

namespace ombrix {

/// The kinds of values and the unit styles by name, for command lines and configuration files, in
/// the order of their raw values. The names are those of the enumerators.
std::span<const std::pair<std::string_view, OmbrixMeasurementFormatter::MeasurementFormat>>
measurementFormatNames() noexcept;
std::span<const std::pair<std::string_view, OmbrixMeasurementFormatter::UnitStyle>>
unitStyleNames() noexcept;

/// The units of measurements by name: their names in Unicode's locale data, such as
/// "kilometer-per-hour", and "beat-per-minute". Created on first use. Any thread.
std::span<const std::pair<std::string_view, platform::AnyUnit>> unitNames();

}  // namespace ombrix

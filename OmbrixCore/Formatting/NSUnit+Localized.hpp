#pragma once

#include <string>
#include <string_view>

#include "OmbrixCore/Formatting/SkiMeasurement.hpp"
#include "OmbrixPlatform/Measure/NSUnit.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix {

/// The user's unit system: `metricType` of the shared settings, read on each call; empty when it is
/// not set. Any thread.
std::string unitPreference();

/// Beats per minute, with the user's word for "bpm" in lower case. One shared unit, created on
/// first use. Any thread.
const platform::NSUnitFrequency& beatsPerMinute();

/// The same unit with its symbol in the language of a locale.
platform::NSUnitFrequency beatsPerMinute(const platform::Locale& locale);

/// The display unit of a kind of length in a unit system: miles, feet and inches for "miles";
/// kilometers, meters and centimeters for anything else, including "british". The comparison is
/// exact. A measurement out of range stops the program. Any thread.
platform::NSUnitLength localized(SkiMeasurement measurement, std::string_view preference);

/// The same for the current unit system, which is read from the settings on each call.
platform::NSUnitLength localized(SkiMeasurement measurement);

/// The display unit of speeds, masses, temperatures, energies or frequencies in a unit system.
///
/// - speed: miles per hour for "miles" and "british", kilometers per hour for anything else;
/// - mass, temperature, energy: the unit that the current locale prefers for a person's weight, for
///   the weather and for a workout, in every unit system;
/// - frequency: beats per minute.
/// Any thread.
template <class Unit>
Unit localized(std::string_view preference);

template <>
platform::NSUnitSpeed localized<platform::NSUnitSpeed>(std::string_view preference);
template <>
platform::NSUnitMass localized<platform::NSUnitMass>(std::string_view preference);
template <>
platform::NSUnitTemperature localized<platform::NSUnitTemperature>(std::string_view preference);
template <>
platform::NSUnitEnergy localized<platform::NSUnitEnergy>(std::string_view preference);
template <>
platform::NSUnitFrequency localized<platform::NSUnitFrequency>(std::string_view preference);

/// The same for the current unit system, which is read from the settings on each call.
template <class Unit>
Unit localized() {
  return localized<Unit>(unitPreference());
}

}  // namespace ombrix

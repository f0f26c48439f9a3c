#pragma once

#include <string>
#include <string_view>

#include "OmbrixCore/Formatting/SkiMeasurement.hpp"
#include "OmbrixPlatform/Measure/NSUnit.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix {

/// The user's unit system: `metricType` of the shared settings, read at each call; empty when there
/// is none. Any thread.
std::string unitPreference();

/// Beats per minute, "bpm" in the user's language and in small letters. One shared unit, made on
/// first use. Any thread.
const platform::NSUnitFrequency& beatsPerMinute();

/// The same unit with its symbol in the language of a locale.
platform::NSUnitFrequency beatsPerMinute(const platform::Locale& locale);

/// The display unit of a kind of length for a unit system: "miles" means miles, feet and inches;
/// anything else, "british" too, means kilometers, meters and centimeters. The comparison is exact.
/// A measurement out of range stops the program. Any thread.
platform::NSUnitLength localized(SkiMeasurement measurement, std::string_view preference);

/// The same for the current unit system, which is read from the settings at each call.
platform::NSUnitLength localized(SkiMeasurement measurement);

/// The display unit of speeds, masses, temperatures, energies or frequencies for a unit system.
///
/// - speed: miles per hour for "miles" and "british", kilometers per hour for anything else;
/// - mass, temperature, energy: what the current locale prefers for a person's weight, for the
///   weather and for a workout, whatever the unit system;
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

/// The same for the current unit system, which is read from the settings at each call.
template <class Unit>
Unit localized() {
  return localized<Unit>(unitPreference());
}

}  // namespace ombrix

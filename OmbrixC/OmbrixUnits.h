#ifndef OMBRIXC_OMBRIX_UNITS_H
#define OMBRIXC_OMBRIX_UNITS_H

#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The units, grouped by what they measure; in the order of `ombrix::unitNames`.
typedef enum OmbrixUnit {
  OmbrixUnitKilometers,
  OmbrixUnitMeters,
  OmbrixUnitCentimeters,
  OmbrixUnitMillimeters,
  OmbrixUnitMiles,
  OmbrixUnitYards,
  OmbrixUnitFeet,
  OmbrixUnitInches,
  OmbrixUnitMetersPerSecond,
  OmbrixUnitKilometersPerHour,
  OmbrixUnitMilesPerHour,
  OmbrixUnitKnots,
  OmbrixUnitKilograms,
  OmbrixUnitGrams,
  OmbrixUnitPounds,
  OmbrixUnitOunces,
  OmbrixUnitStones,
  OmbrixUnitKelvin,
  OmbrixUnitCelsius,
  OmbrixUnitFahrenheit,
  OmbrixUnitKilojoules,
  OmbrixUnitJoules,
  OmbrixUnitKilocalories,
  OmbrixUnitCalories,
  OmbrixUnitKilowattHours,
  OmbrixUnitHertz,
  OmbrixUnitKilohertz,
  OmbrixUnitMegahertz,
  OmbrixUnitGigahertz,
  OmbrixUnitBeatsPerMinute,
  OmbrixUnitDegrees,
  OmbrixUnitArcMinutes,
  OmbrixUnitArcSeconds,
  OmbrixUnitRadians,
  OmbrixUnitRevolutions,
} OmbrixUnit;

/// The kinds of lengths that are measured on a day of skiing.
typedef enum OmbrixSkiMeasurement {
  OmbrixSkiMeasurementDistance = 0,
  OmbrixSkiMeasurementAltitude = 1,
  OmbrixSkiMeasurementVertical = 2,
  OmbrixSkiMeasurementAltitudeChange = 3,
  OmbrixSkiMeasurementTotalVertical = 4,
  OmbrixSkiMeasurementSeasonVertical = 5,
  OmbrixSkiMeasurementDailyVertical = 6,
  OmbrixSkiMeasurementDepth = 7,
} OmbrixSkiMeasurement;

/// The unit's symbol, "bpm" in the user's language. A unit out of range stops the program. The
/// caller owns the copy.
char* ombrix_NSUnit_symbol(OmbrixUnit self);

/// A value in another unit; not a number when the two measure different things. Units out of range
/// stop the program.
double ombrix_NSMeasurement_valueByConvertingToUnit_(double value, OmbrixUnit unit, OmbrixUnit to);

// The unit that each dimension is shown in, in a unit system ("kilometers", "miles", "british"; any
// other text measures like "kilometers"), and in the one of the settings. A measurement out of
// range stops the program.

/// The unit that a kind of lengths is shown in, in the unit system of the settings.
OmbrixUnit ombrix_NSUnitLength_localizedForMeasurement_(OmbrixSkiMeasurement measurement);
/// The unit that a kind of lengths is shown in, in a unit system.
OmbrixUnit ombrix_NSUnitLength_localizedForMeasurement_inPreference_(
    OmbrixSkiMeasurement measurement, const char* preference);
/// The unit that speeds are shown in, in the unit system of the settings.
OmbrixUnit ombrix_NSUnitSpeed_localized(void);
/// The same in a unit system.
OmbrixUnit ombrix_NSUnitSpeed_localizedInMetric_(const char* preference);
/// The unit that masses are shown in, in the unit system of the settings.
OmbrixUnit ombrix_NSUnitMass_localized(void);
/// The same in a unit system.
OmbrixUnit ombrix_NSUnitMass_localizedInMetric_(const char* preference);
/// The unit that temperatures are shown in, in the unit system of the settings.
OmbrixUnit ombrix_NSUnitTemperature_localized(void);
/// The same in a unit system.
OmbrixUnit ombrix_NSUnitTemperature_localizedInMetric_(const char* preference);
/// The unit that energies are shown in, in the unit system of the settings.
OmbrixUnit ombrix_NSUnitEnergy_localized(void);
/// The same in a unit system.
OmbrixUnit ombrix_NSUnitEnergy_localizedInMetric_(const char* preference);
/// The unit that heart rates are shown in, in the unit system of the settings.
OmbrixUnit ombrix_NSUnitFrequency_localized(void);
/// The same in a unit system.
OmbrixUnit ombrix_NSUnitFrequency_localizedInMetric_(const char* preference);
/// Beats per minute, of which one is 60 hertz.
OmbrixUnit ombrix_NSUnitFrequency_beatsPerMinute(void);

#ifdef __cplusplus
}
#endif

#endif

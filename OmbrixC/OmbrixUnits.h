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

/// The unit's symbol, "bpm" in the user's language. Any thread.
char* ombrix_NSUnit_symbol(OmbrixUnit self);

/// A value in another unit; not a number when the two measure different things. Any thread.
double ombrix_NSMeasurement_valueByConvertingToUnit_(double value, OmbrixUnit unit, OmbrixUnit to);

/// The display unit of each dimension for a unit system ("kilometers", "miles", "british"; NULL is
/// the empty text), and for the one in the settings. A measurement out of range stops the program.
/// Any thread.
OmbrixUnit ombrix_NSUnitLength_localizedForMeasurement_(OmbrixSkiMeasurement measurement);
OmbrixUnit ombrix_NSUnitLength_localizedForMeasurement_inPreference_(
    OmbrixSkiMeasurement measurement, const char* preference);
OmbrixUnit ombrix_NSUnitSpeed_localized(void);
OmbrixUnit ombrix_NSUnitSpeed_localizedInMetric_(const char* preference);
OmbrixUnit ombrix_NSUnitMass_localized(void);
OmbrixUnit ombrix_NSUnitMass_localizedInMetric_(const char* preference);
OmbrixUnit ombrix_NSUnitTemperature_localized(void);
OmbrixUnit ombrix_NSUnitTemperature_localizedInMetric_(const char* preference);
OmbrixUnit ombrix_NSUnitEnergy_localized(void);
OmbrixUnit ombrix_NSUnitEnergy_localizedInMetric_(const char* preference);
OmbrixUnit ombrix_NSUnitFrequency_localized(void);
OmbrixUnit ombrix_NSUnitFrequency_localizedInMetric_(const char* preference);
OmbrixUnit ombrix_NSUnitFrequency_beatsPerMinute(void);

#ifdef __cplusplus
}
#endif

#endif

#ifndef OMBRIXC_OMBRIX_FORMATTERS_H
#define OMBRIXC_OMBRIX_FORMATTERS_H

/// \file
/// The formatters of measurements, durations, timers and value texts. An instance serves one thread
/// at a time; the shared value formatter serves any.

#include <stdbool.h>

#include "OmbrixC/OmbrixAttributedString.h"
#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixTypes.h"
#include "OmbrixC/OmbrixUnits.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A calendar unit, one bit each.
typedef enum OmbrixCalendarUnit {
  OmbrixCalendarUnitDay = 16,
  OmbrixCalendarUnitHour = 32,
  OmbrixCalendarUnitMinute = 64,
  OmbrixCalendarUnitSecond = 128,
} OmbrixCalendarUnit;

/// Marks a missing part of date components.
#define OMBRIX_DATE_COMPONENT_UNDEFINED INT64_MAX

typedef struct OmbrixDateComponents {
  int64_t day;
  int64_t hour;
  int64_t minute;
  int64_t second;
} OmbrixDateComponents;

/// The kinds of objects that a formatter accepts.
typedef enum OmbrixObjectKind {
  OmbrixObjectNone = 0,
  OmbrixObjectNumber,          ///< `number`
  OmbrixObjectText,            ///< `text`, in UTF-8
  OmbrixObjectMeasurement,     ///< `number` in `unit`
  OmbrixObjectDateComponents,  ///< `components`
} OmbrixObjectKind;

/// An object for a formatter. Zero-initialised it stands for none; members that its kind does not
/// name are ignored.
typedef struct OmbrixObjectValue {
  OmbrixObjectKind kind;
  double number;
  const char* text;
  OmbrixUnit unit;
  OmbrixDateComponents components;
} OmbrixObjectValue;

typedef enum OmbrixMeasurementUnitStyle {
  OmbrixMeasurementUnitStyleValueOnly = 0,
  OmbrixMeasurementUnitStyleShort = 1,
  OmbrixMeasurementUnitStyleMedium = 2,
  OmbrixMeasurementUnitStyleLong = 3,
} OmbrixMeasurementUnitStyle;

typedef enum OmbrixMeasurementFormat {
  OmbrixMeasurementFormatSpeed = 0,
  OmbrixMeasurementFormatDistance = 1,
  OmbrixMeasurementFormatAltitude = 2,
  OmbrixMeasurementFormatVertical = 3,
  OmbrixMeasurementFormatAltitudeChange = 4,
  OmbrixMeasurementFormatTotalVertical = 5,
  OmbrixMeasurementFormatSeasonVertical = 6,
  OmbrixMeasurementFormatDailyVertical = 7,
  OmbrixMeasurementFormatWeight = 8,
  OmbrixMeasurementFormatEnergy = 9,
  OmbrixMeasurementFormatHeartRate = 10,
  OmbrixMeasurementFormatDepth = 11,
  OmbrixMeasurementFormatTemperature = 12,
  OmbrixMeasurementFormatAngle = 13,
} OmbrixMeasurementFormat;

/// Formats one kind of values in the user's unit system. Texts are NULL for objects of another
/// kind. A format or style out of range stops the program.
typedef struct OmbrixMeasurementFormatter OmbrixMeasurementFormatter;

/// A formatter of speeds; the caller owns it.
OmbrixMeasurementFormatter* ombrix_MeasurementFormatter_init(void);
/// A formatter of one kind of values; the caller owns it.
OmbrixMeasurementFormatter* ombrix_MeasurementFormatter_initAs_(OmbrixMeasurementFormat format);
/// As `init`; a formatter reads nothing from a coder, which may be NULL. The caller owns it.
OmbrixMeasurementFormatter* ombrix_MeasurementFormatter_initWithCoder_(const void* coder);
/// Gives a formatter back; NULL is allowed.
void ombrix_MeasurementFormatter_release(OmbrixMeasurementFormatter* self);

/// The kind of values that it formats.
OmbrixMeasurementFormat ombrix_MeasurementFormatter_format(const OmbrixMeasurementFormatter* self);
/// How units are written; short at first.
OmbrixMeasurementUnitStyle ombrix_MeasurementFormatter_unitStyle(
    const OmbrixMeasurementFormatter* self);
/// Sets it.
void ombrix_MeasurementFormatter_setUnitStyle_(OmbrixMeasurementFormatter* self,
                                               OmbrixMeasurementUnitStyle style);

/// The locale to write in, as in "de_DE", which also selects the units of weights and temperatures;
/// NULL for the current one.
void ombrix_MeasurementFormatter_setLocale_(OmbrixMeasurementFormatter* self,
                                            const char* identifier);

/// The text of an object; NULL for none, and for one of another kind. The caller owns it.
char* ombrix_MeasurementFormatter_stringForObjectValue_(OmbrixMeasurementFormatter* self,
                                                        const OmbrixObjectValue* object);
/// The word for the unit in the user's language; NULL if there is none. The caller owns it.
char* ombrix_MeasurementFormatter_unitLabel(OmbrixMeasurementFormatter* self);
/// The same; the argument is ignored.
char* ombrix_MeasurementFormatter_unitLabelFor_(OmbrixMeasurementFormatter* self,
                                                const char* preference);

/// Reads a number in the locale's form and stores it in `object`, which must not be NULL, as a
/// measurement in the display unit; false and an error for a text that is not a number.
bool ombrix_MeasurementFormatter_getObjectValue_forString_(OmbrixMeasurementFormatter* self,
                                                           OmbrixObjectValue* object,
                                                           const char* string, OmbrixError** error);

/// The styled text of an object: attributes for all of it, the secondary ones for its unit.
/// NULL for an object of another kind. The caller owns it.
OmbrixAttributedString*
ombrix_MeasurementFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    OmbrixMeasurementFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes);
/// The same with attributes for the value and for the unit.
OmbrixAttributedString*
ombrix_MeasurementFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    OmbrixMeasurementFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes);

/// Formats spans of time, "1H 2M 5S": date components, or seconds without their sign. A number that
/// is not finite or does not fit 64 bits stops the program.
typedef struct OmbrixDurationFormatter OmbrixDurationFormatter;

/// Not supported: stops the program.
OmbrixDurationFormatter* ombrix_DurationFormatter_init(void);
/// A formatter whose smallest component is given; a unit that is none of the four stops the
/// program. The caller owns it.
OmbrixDurationFormatter* ombrix_DurationFormatter_initWithMinimumComponent_(
    OmbrixCalendarUnit minimumComponent);
/// With the second as smallest component. Nothing is read from the coder, which may be NULL.
OmbrixDurationFormatter* ombrix_DurationFormatter_initWithCoder_(const void* coder);
/// Gives a formatter back; NULL is allowed.
void ombrix_DurationFormatter_release(OmbrixDurationFormatter* self);
/// The locale to write in, as in "de_DE"; NULL for the one that is current.
void ombrix_DurationFormatter_setLocale_(OmbrixDurationFormatter* self, const char* identifier);
/// False: minutes and metres are not told apart by their letters.
bool ombrix_DurationFormatter_distinctMinVsMeters(const OmbrixDurationFormatter* self);
/// The text of an object; NULL for none, and for one of another kind. The caller owns it.
char* ombrix_DurationFormatter_stringForObjectValue_(OmbrixDurationFormatter* self,
                                                     const OmbrixObjectValue* object);
/// The styled text of an object: attributes for all of it, the secondary ones for its unit.
/// NULL for an object of another kind. The caller owns it.
OmbrixAttributedString*
ombrix_DurationFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    OmbrixDurationFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes);
/// The unit-label attributes are ignored.
OmbrixAttributedString*
ombrix_DurationFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    OmbrixDurationFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes);

/// Formats spans of time as a clock does, "1:02:05"; otherwise as above.
typedef struct OmbrixTimerFormatter OmbrixTimerFormatter;

/// Not supported: stops the program.
OmbrixTimerFormatter* ombrix_TimerFormatter_init(void);
/// A formatter whose smallest component is given; a unit that is none of the four stops the
/// program. The caller owns it.
OmbrixTimerFormatter* ombrix_TimerFormatter_initWithMinimumComponent_(
    OmbrixCalendarUnit minimumComponent);
/// With the second as smallest component. Nothing is read from the coder, which may be NULL.
OmbrixTimerFormatter* ombrix_TimerFormatter_initWithCoder_(const void* coder);
/// Gives a formatter back; NULL is allowed.
void ombrix_TimerFormatter_release(OmbrixTimerFormatter* self);
/// The smallest component that is written.
OmbrixCalendarUnit ombrix_TimerFormatter_minimumComponent(const OmbrixTimerFormatter* self);
/// Sets it; a unit that is none of the four stops the program.
void ombrix_TimerFormatter_setMinimumComponent_(OmbrixTimerFormatter* self,
                                                OmbrixCalendarUnit minimumComponent);
/// The locale to write in, as in "de_DE"; NULL for the one that is current.
void ombrix_TimerFormatter_setLocale_(OmbrixTimerFormatter* self, const char* identifier);
/// False: minutes and metres are not told apart by their letters.
bool ombrix_TimerFormatter_distinctMinVsMeters(const OmbrixTimerFormatter* self);
/// The text of an object; NULL for none, and for one of another kind. The caller owns it.
char* ombrix_TimerFormatter_stringForObjectValue_(OmbrixTimerFormatter* self,
                                                  const OmbrixObjectValue* object);
/// The styled text of an object: attributes for all of it, the secondary ones for its unit.
/// NULL for an object of another kind. The caller owns it.
OmbrixAttributedString* ombrix_TimerFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    OmbrixTimerFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes);
/// The unit-label attributes are ignored.
OmbrixAttributedString*
ombrix_TimerFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    OmbrixTimerFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes);

/// Styles value texts. NULL for objects other than texts.
typedef struct OmbrixValueFormatter OmbrixValueFormatter;

/// A formatter; the caller owns it.
OmbrixValueFormatter* ombrix_ValueFormatter_init(void);
/// As `init`; nothing is read from the coder, which may be NULL.
OmbrixValueFormatter* ombrix_ValueFormatter_initWithCoder_(const void* coder);
/// Gives a formatter back; NULL is allowed.
void ombrix_ValueFormatter_release(OmbrixValueFormatter* self);
/// The one of the whole process; borrowed, never released.
const OmbrixValueFormatter* ombrix_ValueFormatter_shared(void);
/// The name of the attribute for the colour of unit letters; lives as long as the process.
const char* ombrix_ValueFormatter_SecondaryForegroundColor(void);
/// The name of the attribute for the font of unit letters; lives as long as the process.
const char* ombrix_ValueFormatter_SecondaryFont(void);
/// The styled text of an object: attributes for all of it, the secondary ones for its unit.
/// NULL for an object of another kind. The caller owns it.
OmbrixAttributedString* ombrix_ValueFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    const OmbrixValueFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes);
/// The same with attributes for the value and for the unit.
OmbrixAttributedString*
ombrix_ValueFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    const OmbrixValueFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes);

#ifdef __cplusplus
}
#endif

#endif

#include <OmbrixC/OmbrixFormatters.h>
#include <OmbrixC/OmbrixSettings.h>
#include <stdio.h>

/// Prints a heart rate for the user, whose language the caller sets: the texts must be found
/// although nothing of the installed package lies beside this program.
int main(void) {
  ombrix_Settings_registerCoreSettings(ombrix_Settings_shared());
  OmbrixMeasurementFormatter* formatter =
      ombrix_MeasurementFormatter_initAs_(OmbrixMeasurementFormatHeartRate);
  const OmbrixObjectValue value = {
      .kind = OmbrixObjectMeasurement, .number = 120, .unit = OmbrixUnitBeatsPerMinute};
  char* text = ombrix_MeasurementFormatter_stringForObjectValue_(formatter, &value);
  if (text != NULL) puts(text);
  ombrix_String_release(text);
  ombrix_MeasurementFormatter_release(formatter);
  return 0;
}

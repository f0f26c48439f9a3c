/* Settings: stored, observed, mapped to keys; and a date in the service's own writing.

prints:
will change metricType
did change metricType
metricType: miles
units: setUnits:
4.5 MI
2023-11-14T22:13:20
*/
#include <OmbrixC/OmbrixC.h>
#include <stdio.h>

static int changes = 0;

static void onChange(const char* name, bool isPrior, void* context) {
  ++changes;
  if (*(const bool*)context) printf("%s change %s\n", isPrior ? "will" : "did", name);
}

int main(void) {
  ombrix_Library_setIdentity("org.example.settings", "1.0", NULL);
  OmbrixSettings* settings = ombrix_Settings_shared();
  ombrix_Settings_registerCoreSettings(settings);

  bool isPrinting = false;
  OmbrixObservation* observation = ombrix_Settings_addObserver_forKeyPath_context_(
      settings, onChange, "metricType", &isPrinting);
  /* Stored values are followed from a moment after they were registered. */
  for (int i = 0; changes == 0; ++i) {
    ombrix_Settings_setMetricType_(settings, i % 2 == 0 ? "kilometers" : "british");
  }
  isPrinting = true;
  ombrix_Settings_setMetricType_(settings, "miles");
  ombrix_Observation_release(observation);
  char* text = ombrix_Settings_metricType(settings);
  printf("metricType: %s\n", text);
  ombrix_String_release(text);
  text = ombrix_Settings_setterFromKey_("units");
  printf("units: %s\n", text);
  ombrix_String_release(text);

  OmbrixMeasurementFormatter* formatter =
      ombrix_MeasurementFormatter_initAs_(OmbrixMeasurementFormatDistance);
  const OmbrixObjectValue distance = {
      .kind = OmbrixObjectMeasurement, .number = 7.25, .unit = OmbrixUnitKilometers};
  text = ombrix_MeasurementFormatter_stringForObjectValue_(formatter, &distance);
  puts(text);
  ombrix_String_release(text);
  ombrix_MeasurementFormatter_release(formatter);

  OmbrixDateFormatter* dates = ombrix_ServerAPI_localTimezoneFormatter();
  text = ombrix_DateFormatter_stringFromDate_(dates, 1700000000);
  puts(text);
  ombrix_String_release(text);
  ombrix_DateFormatter_release(dates);

  ombrix_Library_end();
  return ombrix_Library_liveHandles() == 0 ? 0 : 1;
}

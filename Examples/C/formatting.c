/* Values for people: measurements, durations, styled text.

prints:
12.3 KM
120 BPM
1H 2M 5S
1:02:05
7 KM: 2 bytes in 20 pt, 2 bytes in 15 pt
*/
#include <OmbrixC/OmbrixC.h>
#include <stdio.h>

static void say(char* text) {
  puts(text != NULL ? text : "no text");
  ombrix_String_release(text);
}

int main(void) {
  OmbrixSettings* settings = ombrix_Settings_shared();
  ombrix_Settings_registerCoreSettings(settings);
  ombrix_Settings_setMetricType_(settings, "kilometers");

  OmbrixMeasurementFormatter* formatter =
      ombrix_MeasurementFormatter_initAs_(OmbrixMeasurementFormatDistance);
  ombrix_MeasurementFormatter_setLocale_(formatter, "en_US");
  const OmbrixObjectValue distance = {
      .kind = OmbrixObjectMeasurement, .number = 12300, .unit = OmbrixUnitMeters};
  say(ombrix_MeasurementFormatter_stringForObjectValue_(formatter, &distance));
  ombrix_MeasurementFormatter_release(formatter);

  formatter = ombrix_MeasurementFormatter_initAs_(OmbrixMeasurementFormatHeartRate);
  ombrix_MeasurementFormatter_setLocale_(formatter, "en_US");
  const OmbrixObjectValue pulse = {
      .kind = OmbrixObjectMeasurement, .number = 120, .unit = OmbrixUnitBeatsPerMinute};
  say(ombrix_MeasurementFormatter_stringForObjectValue_(formatter, &pulse));
  ombrix_MeasurementFormatter_release(formatter);

  const OmbrixObjectValue seconds = {.kind = OmbrixObjectNumber, .number = 3725};
  OmbrixDurationFormatter* duration =
      ombrix_DurationFormatter_initWithMinimumComponent_(OmbrixCalendarUnitSecond);
  say(ombrix_DurationFormatter_stringForObjectValue_(duration, &seconds));
  ombrix_DurationFormatter_release(duration);
  OmbrixTimerFormatter* timer =
      ombrix_TimerFormatter_initWithMinimumComponent_(OmbrixCalendarUnitSecond);
  say(ombrix_TimerFormatter_stringForObjectValue_(timer, &seconds));
  ombrix_TimerFormatter_release(timer);

  const OmbrixFont font = {"Inter", true, false, 20};
  const OmbrixAttributes attributes = {.font = &font};
  const OmbrixObjectValue value = {.kind = OmbrixObjectText, .text = "7 KM"};
  OmbrixAttributedString* styled =
      ombrix_ValueFormatter_attributedStringForObjectValue_withDefaultAttributes_(
          ombrix_ValueFormatter_shared(), &value, &attributes);
  char* text = ombrix_AttributedString_string(styled);
  printf("%s:", text);
  ombrix_String_release(text);
  const OmbrixAttributedRun* runs = ombrix_AttributedString_runs(styled);
  for (size_t i = 0; i < ombrix_AttributedString_runCount(styled); ++i) {
    printf("%s %zu bytes in %g pt", i == 0 ? "" : ",", runs[i].utf8Length, runs[i].font->pointSize);
  }
  puts("");
  ombrix_AttributedString_release(styled);

  ombrix_Library_end();
  return ombrix_Library_liveHandles() == 0 ? 0 : 1;
}

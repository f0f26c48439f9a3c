#include "OmbrixC/OmbrixFormatters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "OmbrixC/Detail/Units.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix::c {
namespace {

using Object = OmbrixObjectValue;

/// The text as C++ keeps it; "NULL" for none.
std::string taken(char* text) {
  const std::string copy = text == nullptr ? "NULL" : text;
  ombrix_String_release(text);
  return copy;
}

Object number(double value) { return {.kind = OmbrixObjectNumber, .number = value}; }

// Catches an enumerator that names its neighbour's unit.
TEST(UnitsTests, EnumeratorsNameTheirUnits) {
  for (int raw = OmbrixUnitKilometers; raw <= OmbrixUnitRevolutions; ++raw) {
    const auto unit = static_cast<OmbrixUnit>(raw);
    EXPECT_EQ(toC(from(unit)), unit);
  }
  EXPECT_EQ(taken(ombrix_NSUnit_symbol(OmbrixUnitRevolutions)), "rev");
  EXPECT_EQ(taken(ombrix_NSUnit_symbol(OmbrixUnitKelvin)), "K");
  EXPECT_EQ(
      ombrix_NSMeasurement_valueByConvertingToUnit_(120, OmbrixUnitBeatsPerMinute, OmbrixUnitHertz),
      7'200);
  EXPECT_TRUE(std::isnan(
      ombrix_NSMeasurement_valueByConvertingToUnit_(1, OmbrixUnitMeters, OmbrixUnitHertz)));
  EXPECT_EQ(
      ombrix_NSUnitLength_localizedForMeasurement_inPreference_(OmbrixSkiMeasurementDepth, "miles"),
      OmbrixUnitInches);
  EXPECT_EQ(
      ombrix_NSUnitLength_localizedForMeasurement_inPreference_(OmbrixSkiMeasurementDepth, nullptr),
      OmbrixUnitCentimeters);
  EXPECT_EQ(ombrix_NSUnitSpeed_localizedInMetric_("british"), OmbrixUnitMilesPerHour);
  EXPECT_DEATH(ombrix_NSUnit_symbol(static_cast<OmbrixUnit>(63)), "unexpected enum case");
}

// Catches an object that changes its kind on the way, and text or attributes lost on the way back.
TEST(FormattersTests, SelectorsReachTheirOperations) {
  const testing::ScopedSettings settings("miles");
  OmbrixMeasurementFormatter* total =
      ombrix_MeasurementFormatter_initAs_(OmbrixMeasurementFormatTotalVertical);
  const Object feet{.kind = OmbrixObjectMeasurement, .number = 12'999, .unit = OmbrixUnitFeet};
  const Object text{.kind = OmbrixObjectText, .text = "12 KM"};
  EXPECT_EQ(taken(ombrix_MeasurementFormatter_stringForObjectValue_(total, &feet)), "12.9K FT");
  EXPECT_EQ(taken(ombrix_MeasurementFormatter_stringForObjectValue_(total, &text)), "NULL");
  EXPECT_EQ(taken(ombrix_MeasurementFormatter_stringForObjectValue_(total, nullptr)), "NULL");
  ombrix_MeasurementFormatter_setUnitStyle_(total, OmbrixMeasurementUnitStyleLong);
  EXPECT_EQ(ombrix_MeasurementFormatter_unitStyle(total), OmbrixMeasurementUnitStyleLong);
  EXPECT_EQ(taken(ombrix_MeasurementFormatter_unitLabelFor_(total, "kilometers")), "feet");

  Object read{};
  OmbrixError* error = nullptr;
  EXPECT_TRUE(ombrix_MeasurementFormatter_getObjectValue_forString_(total, &read, "1,234", &error));
  EXPECT_EQ(read.number, 1'234);
  EXPECT_EQ(read.unit, OmbrixUnitFeet);
  EXPECT_FALSE(ombrix_MeasurementFormatter_getObjectValue_forString_(total, &read, "?", &error));
  EXPECT_STREQ(ombrix_Error_message(error), "The text “?” is not a number.");
  ombrix_Error_release(error);
  ombrix_MeasurementFormatter_setLocale_(total, "es_ES");
  EXPECT_EQ(taken(ombrix_MeasurementFormatter_stringForObjectValue_(total, &feet)),
            "12,9\u00a0MIL PIES");
  ombrix_MeasurementFormatter_release(total);
  auto* uncoded = ombrix_MeasurementFormatter_initWithCoder_(nullptr);
  EXPECT_EQ(ombrix_MeasurementFormatter_format(uncoded), OmbrixMeasurementFormatSpeed);
  ombrix_MeasurementFormatter_release(uncoded);

  const Object components{
      .kind = OmbrixObjectDateComponents,
      .components = {OMBRIX_DATE_COMPONENT_UNDEFINED, 1, 2, OMBRIX_DATE_COMPONENT_UNDEFINED}};
  const Object seconds = number(307);
  auto* duration = ombrix_DurationFormatter_initWithMinimumComponent_(OmbrixCalendarUnitMinute);
  auto* timer = ombrix_TimerFormatter_initWithMinimumComponent_(OmbrixCalendarUnitMinute);
  ombrix_TimerFormatter_setMinimumComponent_(timer, OmbrixCalendarUnitSecond);
  EXPECT_FALSE(ombrix_DurationFormatter_distinctMinVsMeters(duration));
  EXPECT_EQ(taken(ombrix_DurationFormatter_stringForObjectValue_(duration, &components)), "1H 2M");
  EXPECT_EQ(taken(ombrix_TimerFormatter_stringForObjectValue_(timer, &seconds)), "5:07");
  ombrix_DurationFormatter_release(duration);
  ombrix_TimerFormatter_release(timer);
  EXPECT_DEATH(ombrix_TimerFormatter_init(), "unimplemented initializer 'init\\(\\)'");
}

// Catches fonts and colours that change places, and runs that outlive what they point to.
TEST(FormattersTests, AttributedTextTellsItsRuns) {
  const OmbrixFont font{"Inter", true, false, 20};
  const OmbrixColor gray{.5, .5, .5, 1};
  const OmbrixAttributes value{&font, nullptr, nullptr, nullptr};
  const OmbrixAttributes unit{nullptr, &gray, nullptr, nullptr};
  const Object text{.kind = OmbrixObjectText, .text = "7\u00a0KM"};
  auto* styled =
      ombrix_ValueFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
          ombrix_ValueFormatter_shared(), &text, &value, &unit);
  ASSERT_NE(styled, nullptr);
  EXPECT_EQ(taken(ombrix_AttributedString_string(styled)), "7\u00a0KM");
  ASSERT_EQ(ombrix_AttributedString_runCount(styled), 2U);
  const OmbrixAttributedRun* runs = ombrix_AttributedString_runs(styled);
  EXPECT_EQ(runs[0].length, 2U);
  EXPECT_EQ(runs[0].font->pointSize, 20);
  EXPECT_EQ(runs[0].foregroundColor, nullptr);
  EXPECT_EQ(runs[1].location, 2U);
  EXPECT_EQ(runs[0].utf8Length, 3U);
  EXPECT_EQ(runs[1].utf8Location, 3U);
  EXPECT_EQ(runs[1].utf8Length, 2U);
  EXPECT_STREQ(runs[1].font->name, "Inter");
  EXPECT_EQ(runs[1].font->pointSize, 15);
  EXPECT_EQ(runs[1].foregroundColor->red, .5);
  ombrix_AttributedString_release(styled);

  const Object seven = number(7);
  EXPECT_EQ(ombrix_ValueFormatter_attributedStringForObjectValue_withDefaultAttributes_(
                ombrix_ValueFormatter_shared(), &seven, &value),
            nullptr);
  EXPECT_STREQ(ombrix_ValueFormatter_SecondaryFont(), "OmbrixSecondaryFont");
  EXPECT_STREQ(ombrix_ValueFormatter_SecondaryForegroundColor(), "OmbrixSecondaryForegroundColor");
}

}  // namespace
}  // namespace ombrix::c

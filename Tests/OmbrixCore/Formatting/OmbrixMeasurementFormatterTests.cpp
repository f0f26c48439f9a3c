#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"

#include <gtest/gtest.h>

#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using platform::AnyMeasurement;
using platform::FormatterObject;
using platform::Measurement;
using platform::NSUnitAngle;
using platform::NSUnitEnergy;
using platform::NSUnitFrequency;
using platform::NSUnitLength;
using platform::NSUnitMass;
using platform::NSUnitSpeed;
using platform::NSUnitTemperature;
using testing::ScopedLocale;
using testing::ScopedSettings;
using Style = OmbrixMeasurementFormatter::UnitStyle;

using F = OmbrixMeasurementFormatter::MeasurementFormat;

struct MeasurementText {
  const char* locale;
  F format;
  const char* preference;
  double number;
  const char *valueOnly, *shortText, *mediumText, *longText;
  const char* unitLabel;  // null where there is none
};

// Every format; what other unit systems and locales write is held against the library's own texts
// in AgainstIcuTests.
// clang-format off
constexpr MeasurementText kMeasurementTexts[] = {
    {"en_US", F::speed,          "miles",      10,      "22.4",         "22.4MPH",      "22.4 MPH",       "22.4 MILES PER HOUR",          "mph"},
    {"en_US", F::speed,          "kilometers", 10,      "36.0",         "36.0KM/H",     "36.0 KM/H",      "36.0 KILOMETERS PER HOUR",     "km/h"},
    {"en_US", F::speed,          "british",    10,      "22.4",         "22.4MPH",      "22.4 MPH",       "22.4 MILES PER HOUR",          "mph"},
    {"en_US", F::distance,       "miles",      12345.7, "7.7",          "7.7MI",        "7.7 MI",         "7.7 MILES",                    "mi"},
    {"en_US", F::altitude,       "miles",      2345.6,  "7,696",        "7,696′",       "7,696 FT",       "7,696 FEET",                   "ft"},
    {"en_US", F::altitude,       "kilometers", 2345.6,  "2,346",        "2,346M",       "2,346 M",        "2,346 METERS",                 "m"},
    {"en_US", F::vertical,       "miles",      1234.5,  "4,050",        "4,050′",       "4,050 FT",       "4,050 FEET",                   "ft"},
    {"en_US", F::altitudeChange, "miles",      -87.4,   "-287",         "-287′",        "-287 FT",        "-287 FEET",                    "ft"},
    {"en_US", F::totalVertical,  "miles",      12345,   "40.5k",        "40.5K′",       "40.5K FT",       "40.5K FEET",                   "ft"},
    {"en_US", F::totalVertical,  "kilometers", 12345,   "12",           "12KM",         "12 KM",          "12 KILOMETERS",                "km"},
    {"en_US", F::seasonVertical, "miles",      3961.2,  "12.9k",        "12.9K′",       "12.9K FT",       "12.9K FEET",                   "ft"},
    {"en_US", F::dailyVertical,  "miles",      3961.2,  "12k",          "12K′",         "12K FT",         "12K FEET",                     "ft"},
    {"en_US", F::dailyVertical,  "british",    3961.2,  "4",            "4KM",          "4 KM",           "4 KILOMETERS",                 "km"},
    {"en_US", F::weight,         "miles",      71.5,    "158",          "158#",         "158 LB",         "158 POUNDS",                   "lb"},
    {"en_US", F::energy,         "miles",      1234.5,  "1,235",        "1,235KCAL",    "1,235 KCAL",     "1,235 KILOCALORIES",           "kcal"},
    {"en_US", F::heartRate,      "miles",      128.4,   "128",          "128 BPM",      "128 BPM",        "128 BPM",                      "bpm"},
    {"en_US", F::depth,          "miles",      152.4,   "60",           "60″",          "60 IN",          "60 INCHES",                    "in"},
    {"en_US", F::depth,          "kilometers", 152.4,   "152",          "152CM",        "152 CM",         "152 CENTIMETERS",              "cm"},
    {"en_US", F::temperature,    "miles",      -12.5,   "9",            "9°",           "9°F",            "9 DEGREES FAHRENHEIT",         nullptr},
    {"en_US", F::angle,          "miles",      37.5,    "38",           "38°",          "38 DEG",         "38 DEGREES",                   "deg"},
    {"de_DE", F::altitudeChange, "miles",      -87.4,   "-287",         "-287 FT",      "-287 FT",        "-287 FUSS",                    "ft"},
    {"ar_EG", F::altitude,       "kilometers", 2345.6,  "٢٬٣٤٦",        "٢٬٣٤٦ م",      "٢٬٣٤٦ مترًا",     "٢٬٣٤٦ مترًا",                   "أمتار"},
};
// clang-format on

std::optional<std::string> text(F format, Style style, const FormatterObject& object) {
  OmbrixMeasurementFormatter formatter(format);
  formatter.setUnitStyle(style);
  return formatter.string(object);
}

Measurement<NSUnitLength> feet(double value) { return {value, NSUnitLength::feet()}; }

// Catches a wrong unit, digit, width, capital or label in any format, style and unit system.
TEST(OmbrixMeasurementFormatterTests, WritesEveryFormatInEveryStyle) {
  const ScopedSettings settings;
  for (const MeasurementText& row : kMeasurementTexts) {
    SCOPED_TRACE(std::string(row.locale) + ' ' + std::to_string(static_cast<int>(row.format)) +
                 ' ' + row.preference);
    const ScopedLocale locale(row.locale, {"en"});
    settings.settings().setMetricType(row.preference);
    EXPECT_EQ(text(row.format, Style::valueOnly, row.number), row.valueOnly);
    EXPECT_EQ(text(row.format, Style::shortStyle, row.number), row.shortText);
    EXPECT_EQ(text(row.format, Style::mediumStyle, row.number), row.mediumText);
    EXPECT_EQ(text(row.format, Style::longStyle, row.number), row.longText);
    OmbrixMeasurementFormatter formatter(row.format);
    const auto label = formatter.unitLabel();
    EXPECT_EQ(label.has_value(), row.unitLabel != nullptr);
    if (row.unitLabel != nullptr) {
      EXPECT_EQ(label, row.unitLabel);
      EXPECT_EQ(formatter.unitLabel("a system of its own"), row.unitLabel);
    }
  }
}

// Catches bounds that include what they should not, and rounding where cutting is meant.
TEST(OmbrixMeasurementFormatterTests, AbbreviatesVerticalSumsInFeet) {
  const ScopedSettings miles("miles");
  struct Case {
    F format;
    double feet;
    const char *valueOnly, *medium;
  };
  constexpr Case kCases[] = {
      {F::totalVertical, 1'000'000, "1,000.0k", "1,000.0K FT"},
      {F::totalVertical, 1'000'001, "1.0mil", "1.0MIL FT"},
      {F::totalVertical, 1'999'999, "1.9mil", "1.9MIL FT"},
      {F::totalVertical, 250, "0.2k", "0.2K FT"},
      {F::totalVertical, 0, "0.0k", "0.0K FT"},
      {F::totalVertical, -12'999, "-12.9", "-12.9 FT"},
      {F::seasonVertical, 12'999, "12.9k", "12.9K FT"},
      {F::seasonVertical, 2'500'000, "2.5mil", "2.5MIL FT"},
      {F::dailyVertical, 12'999, "12k", "12K FT"},
      {F::dailyVertical, 2'500'000, "2,500k", "2,500K FT"},
      {F::vertical, 12'999, "12,999", "12,999 FT"},
      {F::altitudeChange, 12'999, "12,999", "12,999 FT"},
  };
  for (const Case& test : kCases) {
    EXPECT_EQ(text(test.format, Style::valueOnly, feet(test.feet)), test.valueOnly);
    EXPECT_EQ(text(test.format, Style::mediumStyle, feet(test.feet)), test.medium);
  }
}

// Catches a conversion or division that loses a last bit, which cutting turns into a whole step.
TEST(OmbrixMeasurementFormatterTests, WholeThousandsOfFeetKeepTheirStep) {
  const ScopedSettings miles("miles");
  OmbrixMeasurementFormatter total(F::totalVertical), daily(F::dailyVertical);
  total.setUnitStyle(Style::valueOnly);
  daily.setUnitStyle(Style::valueOnly);
  const platform::NSNumberFormatter whole({});
  for (int thousands = 1; thousands <= 200'000; ++thousands) {
    const auto sum = feet(thousands * 1'000.0);
    const std::string digits = *whole.string(thousands);
    if (thousands <= 1'000) {
      ASSERT_EQ(total.string(sum), digits + ".0k");
    }
    ASSERT_EQ(daily.string(sum), digits + "k");
    if (thousands > 1'000) {
      const int tenths = thousands / 100;
      ASSERT_EQ(total.string(sum),
                std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + "mil");
    }
  }
}

// Catches objects of another dimension let through, and numbers taken in another unit.
TEST(OmbrixMeasurementFormatterTests, TakesMeasurementsOfItsDimensionAndNumbers) {
  const ScopedLocale locale("de_DE", {"en"});
  const ScopedSettings kilometers("kilometers");
  const AnyMeasurement one[] = {Measurement(1.0, NSUnitLength::meters()),
                                Measurement(1.0, NSUnitSpeed::metersPerSecond()),
                                Measurement(1.0, NSUnitMass::kilograms()),
                                Measurement(1.0, NSUnitTemperature::celsius()),
                                Measurement(1.0, NSUnitEnergy::kilocalories()),
                                Measurement(1.0, beatsPerMinute()),
                                Measurement(1.0, NSUnitAngle::degrees())};
  for (int raw = 0; raw < 14; ++raw) {
    const F format = *platform::fromRawValue<F>(raw);
    const auto unit = OmbrixMeasurementFormatter::localizedUnit(format, "kilometers");
    int accepted = 0;
    for (const auto& measurement : one) {
      const auto result = text(format, Style::valueOnly, measurement);
      if (!result) continue;
      ++accepted;
      EXPECT_EQ(measurement.index(), unit.index()) << raw;
      if (format != F::depth) {
        EXPECT_EQ(text(format, Style::valueOnly, 1), result) << raw;
      }
    }
    EXPECT_EQ(accepted, 1) << raw;
    EXPECT_EQ(text(format, Style::mediumStyle, "12"), std::nullopt);
    EXPECT_EQ(text(format, Style::mediumStyle, {}), std::nullopt);
  }
  EXPECT_EQ(text(F::depth, Style::mediumStyle, 30), "30 CM");
  EXPECT_EQ(text(F::angle, Style::mediumStyle, Measurement(1.0, NSUnitAngle::radians())), "1 RAD");
  EXPECT_EQ(text(F::heartRate, Style::mediumStyle, Measurement(7'200.0, NSUnitFrequency::hertz())),
            "120 BPM");
}

// Catches settings read once, a style that is not passed on, and one that is where it should not.
TEST(OmbrixMeasurementFormatterTests, FollowsSettingsAndStyleButNotTheLocale) {
  ScopedLocale locale("en_US");
  const ScopedSettings settings("miles");
  OmbrixMeasurementFormatter daily(F::dailyVertical), total(F::totalVertical);
  EXPECT_EQ(daily.unitStyle(), Style::mediumStyle);
  EXPECT_EQ(daily.string(feet(12'999)), "12K FT");
  EXPECT_EQ(total.string(feet(12'999)), "12.9K FT");
  for (auto* formatter : {&daily, &total}) formatter->setUnitStyle(Style::longStyle);
  EXPECT_EQ(daily.string(feet(12'999)), "12K FT");
  EXPECT_EQ(daily.unitLabel(), "feet");
  EXPECT_EQ(total.string(feet(12'999)), "12.9K FEET");
  locale.change("de_DE");
  EXPECT_EQ(total.string(feet(12'999)), "12.9K FEET");
  settings.settings().setMetricType("kilometers");
  EXPECT_EQ(total.string(12'345), "12 KILOMETERS");
  EXPECT_EQ(OmbrixMeasurementFormatter().string(10), "36,0 KM/H");
}

// Catches suffixes of the wrong language: "mil" stands for thousands in Spanish.
TEST(OmbrixMeasurementFormatterTests, AbbreviatesInTheUsersLanguage) {
  const ScopedSettings miles("miles");
  struct Case {
    const char *locale, *thousands, *millions;
  };
  constexpr Case kCases[] = {
      {"en_US", "12.9K FT", "1.2MIL FT"},
      {"de_DE", "12,9\u00a0TSD. FT", "1,2\u00a0MIO. FT"},
      {"es_US", "12.9\u00a0MIL FT", "1.2\u00a0M FT"},
      {"pt_BR", "12,9\u00a0MIL PÉS", "1,2\u00a0MI PÉS"},
      {"ca_ES", "12,9\u00a0MIL FT", "1,2\u00a0M FT"},
      {"gl_ES", "12,9K FT", "1,2M FT"},
  };
  for (const Case& test : kCases) {
    const ScopedLocale locale(test.locale);
    EXPECT_EQ(text(F::totalVertical, Style::mediumStyle, feet(12'999)), test.thousands);
    EXPECT_EQ(text(F::totalVertical, Style::mediumStyle, feet(1'234'567)), test.millions);
  }
}

// Catches text read with another locale's separators, and a value in another unit than is shown.
TEST(OmbrixMeasurementFormatterTests, ReadsBackWhatItShows) {
  const ScopedLocale locale("de_DE");
  const ScopedSettings miles("miles");
  OmbrixMeasurementFormatter speed, total(F::totalVertical);
  EXPECT_EQ(speed.getObjectValue("1.036,5"),
            AnyMeasurement(Measurement(1'036.5, NSUnitSpeed::milesPerHour())));
  EXPECT_EQ(total.getObjectValue("12"), AnyMeasurement(feet(12)));
  EXPECT_FALSE(speed.getObjectValue("schnell").error().empty());
}

// Catches attributes that do not reach the value formatter, or reach it in the other place.
TEST(OmbrixMeasurementFormatterTests, StylesItsText) {
  using Key = platform::NSAttributedString::Key;
  const ScopedSettings kilometers("kilometers");
  OmbrixMeasurementFormatter speed;
  const auto apart =
      speed.attributedStringWithValueAttributes(10, {{Key::kern, 1.0}}, {{Key::font, 9.0}});
  ASSERT_TRUE(apart);
  EXPECT_EQ(apart->string(), "36.0 KM/H");
  EXPECT_EQ(apart->runAt(0).attributes->find(Key::font), nullptr);
  EXPECT_EQ(*apart->runAt(5).attributes->find<double>(Key::font), 9);
  const auto together = speed.attributedStringWithDefaultAttributes(10, {{Key::kern, 1.0}});
  EXPECT_EQ(together->runs().size(), 1U);
  EXPECT_FALSE(speed.attributedStringWithDefaultAttributes("10", {}));
}

// Catches an unknown raw value that falls back to a unit of its own choosing.
TEST(OmbrixMeasurementFormatterTests, StopsAtRawValuesOutOfRange) {
  EXPECT_EQ(platform::fromRawValue<F>(14), std::nullopt);
  EXPECT_EQ(platform::fromRawValue<Style>(-1), std::nullopt);
  EXPECT_DEATH(text(static_cast<F>(14), Style::mediumStyle, 1),
               "unexpected enum case 'MeasurementFormat\\(rawValue: 14\\)'");
  EXPECT_DEATH(text(F::speed, static_cast<Style>(4), 1),
               "unexpected enum case 'UnitStyle\\(rawValue: 4\\)'");
}

}  // namespace
}  // namespace ombrix

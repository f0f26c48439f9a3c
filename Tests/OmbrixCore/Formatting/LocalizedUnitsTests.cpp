#include <gtest/gtest.h>

#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixPlatform/Measure/Measurement.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using platform::Measurement;
using platform::NSUnitEnergy;
using platform::NSUnitFrequency;
using platform::NSUnitLength;
using platform::NSUnitMass;
using platform::NSUnitSpeed;
using platform::NSUnitTemperature;
using testing::ScopedSettings;

// Catches a pair of units mixed up, and a comparison that is not exact.
TEST(LocalizedUnitsTests, LengthsFollowTheUnitSystem) {
  struct Case {
    int raw;
    NSUnitLength imperial, other;
  };
  const auto mi = NSUnitLength::miles(), ft = NSUnitLength::feet(), in = NSUnitLength::inches();
  const auto km = NSUnitLength::kilometers(), m = NSUnitLength::meters();
  const Case cases[] = {
      {0, mi, km}, {1, ft, m},  {2, ft, m},  {3, ft, m},
      {4, ft, km}, {5, ft, km}, {6, ft, km}, {7, in, NSUnitLength::centimeters()}};
  const ScopedSettings settings;
  for (const char* preference : {"miles", "kilometers", "british", "", "MILES", "miles "}) {
    settings.settings().setMetricType(preference);
    for (const Case& test : cases) {
      const auto measurement = platform::fromRawValue<SkiMeasurement>(test.raw);
      ASSERT_TRUE(measurement);
      const auto& expected = std::string_view(preference) == "miles" ? test.imperial : test.other;
      EXPECT_EQ(localized(*measurement, preference), expected) << test.raw << preference;
      EXPECT_EQ(localized(*measurement), expected) << test.raw << preference;
    }
  }
  EXPECT_EQ(platform::fromRawValue<SkiMeasurement>(8), std::nullopt);
  EXPECT_EQ(platform::fromRawValue<SkiMeasurement>(-1), std::nullopt);
  EXPECT_DEATH(localized(static_cast<SkiMeasurement>(8), ""),
               "unexpected enum case 'SkiMeasurement\\(rawValue: 8\\)'");
}

// Catches the unit system asked where the locale decides, and the other way round.
TEST(LocalizedUnitsTests, OtherDimensionsFollowTheirOwnRule) {
  struct Case {
    const char *locale, *preference;
    NSUnitSpeed speed;
    NSUnitMass mass;
    NSUnitTemperature temperature;
  };
  const auto mph = NSUnitSpeed::milesPerHour(), kmh = NSUnitSpeed::kilometersPerHour();
  const auto kg = NSUnitMass::kilograms(), lb = NSUnitMass::pounds();
  const auto c = NSUnitTemperature::celsius(), f = NSUnitTemperature::fahrenheit();
  const Case cases[] = {
      {"en_US", "kilometers", kmh, lb, f}, {"en_US", "miles", mph, lb, f},
      {"de_DE", "miles", mph, kg, c},      {"de_DE", "MILES", kmh, kg, c},
      {"en_GB", "british", mph, lb, c},    {"en_GB", "", kmh, lb, c},
  };
  const ScopedSettings settings;
  for (const Case& test : cases) {
    SCOPED_TRACE(std::string(test.locale) + test.preference);
    const testing::ScopedLocale locale(test.locale, {"en"});
    settings.settings().setMetricType(test.preference);
    EXPECT_EQ(localized<NSUnitSpeed>(), test.speed);
    EXPECT_EQ(localized<NSUnitSpeed>(test.preference), test.speed);
    EXPECT_EQ(localized<NSUnitMass>(), test.mass);
    EXPECT_EQ(localized<NSUnitTemperature>(), test.temperature);
    EXPECT_EQ(localized<NSUnitEnergy>(), NSUnitEnergy::kilocalories());
    EXPECT_EQ(localized<NSUnitFrequency>(), beatsPerMinute());
  }
}

// Catches a true factor between beats per minute and hertz, and a capital symbol.
TEST(LocalizedUnitsTests, BeatsPerMinuteIsOneUnitOfSixtyHertz) {
  EXPECT_EQ(&beatsPerMinute(), &beatsPerMinute());
  EXPECT_EQ(beatsPerMinute().symbol(), "bpm");
  EXPECT_EQ(Measurement(120.0, beatsPerMinute()).converted(NSUnitFrequency::hertz()).value, 7'200);
}

}  // namespace
}  // namespace ombrix

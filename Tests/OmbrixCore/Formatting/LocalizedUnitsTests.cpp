#include <gtest/gtest.h>

#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixPlatform/Measure/Measurement.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using platform::Measurement;
using platform::NSUnitFrequency;
using platform::NSUnitLength;
using platform::NSUnitSpeed;
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
  for (const char* preference : {"miles", "MILES", "british"}) {
    settings.settings().setMetricType(preference);
    EXPECT_EQ(localized<NSUnitSpeed>(), localized<NSUnitSpeed>(preference));
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

// Catches a true factor between beats per minute and hertz, and a capital symbol.
TEST(LocalizedUnitsTests, BeatsPerMinuteIsOneUnitOfSixtyHertz) {
  EXPECT_EQ(&beatsPerMinute(), &beatsPerMinute());
  EXPECT_EQ(beatsPerMinute().symbol(), "bpm");
  EXPECT_EQ(Measurement(120.0, beatsPerMinute()).converted(NSUnitFrequency::hertz()).value, 7'200);
}

}  // namespace
}  // namespace ombrix

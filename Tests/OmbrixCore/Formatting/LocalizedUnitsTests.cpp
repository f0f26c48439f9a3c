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

// Catches a comparison that is not exact, and a kind of length that falls back to a unit; which
// unit belongs to which kind is held against ICU's texts in AgainstIcuTests.
TEST(LocalizedUnitsTests, LengthsFollowTheUnitSystem) {
  const ScopedSettings settings("MILES");
  EXPECT_EQ(localized<NSUnitSpeed>(), NSUnitSpeed::kilometersPerHour());
  EXPECT_EQ(localized(SkiMeasurement::totalVertical), NSUnitLength::kilometers());
  EXPECT_EQ(localized(SkiMeasurement::totalVertical, "miles"), NSUnitLength::feet());
  EXPECT_EQ(platform::fromRawValue<SkiMeasurement>(7), SkiMeasurement::depth);
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

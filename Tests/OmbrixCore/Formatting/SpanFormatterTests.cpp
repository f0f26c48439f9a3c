#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <thread>
#include <vector>

#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixTimerFormatter.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using platform::FormatterObject;
using platform::NSCalendarUnit;
using platform::NSDateComponents;
using testing::ScopedSettings;

constexpr auto kDay = NSCalendarUnit::day, kHour = NSCalendarUnit::hour;
constexpr auto kMinute = NSCalendarUnit::minute, kSecond = NSCalendarUnit::second;
constexpr auto kMonth = NSCalendarUnit::month;

struct Case {
  NSCalendarUnit minimum;
  FormatterObject object;
  const char *metric, *imperial, *timer;
};

// Catches a unit allowed or a zero dropped that should not be, for each smallest unit, and a
// setting that is left over from the call before.
TEST(SpanFormatterTests, WritesDurationsAndTimers) {
  const Case cases[] = {
      {kSecond, 0, "0S", "0S", "0"},
      {kSecond, 7.9, "7S", "7S", "7"},
      {kSecond, 307, "5M 7S", "5M 7S", "5:07"},
      {kSecond, 3'725, "1H 2M 5S", "1H 2M 5S", "1:02:05"},
      {kSecond, -3'725, "1H 2M 5S", "1H 2M 5S", "1:02:05"},
      {kSecond, 90'061, "25H 1M 1S", "25H 1M 1S", "25:01:01"},
      {kSecond, NSDateComponents{.day = 1, .hour = 1}, "25H 0M 0S", "25H 0M 0S", "25:00:00"},
      {kMinute, 59, "0 MIN", "0M", "0"},
      {kMinute, 3'000, "50 MIN", "50M", "50"},
      {kMinute, 3'900, "1H 5M", "1H 5M", "1:05"},
      {kMinute, 7'200, "2H", "2H", "2:00"},
      {kMinute, NSDateComponents{.minute = 90}, "1 HR, 30 MIN", "1H 30M", "1:30"},
      {kMinute, NSDateComponents{.hour = 0, .minute = 120}, "2 HR, 0 MIN", "2H", "2:00"},
      {kHour, 0, "0H", "0H", "0"},
      {kHour, 7'199, "1H", "1H", "1"},
      {kHour, 86'400, "1D", "1D", "1D 0H"},
      {kHour, NSDateComponents{.day = 2, .hour = 30}, "3D 6H", "3D 6H", "3D 6H"},
      {kDay, 0, "0D", "0D", "0"},
      {kDay, NSDateComponents{.day = 3, .hour = 23}, "3D", "3D", "3"},
      {kMonth, 3'725, "1H 2M 5S", "1H 2M 5S", "1:02:05"},
  };
  for (const char* system : {"kilometers", "british", "", "miles"}) {
    const ScopedSettings settings(system);
    const bool isMetric = std::string_view(system) != "miles";
    std::map<NSCalendarUnit, OmbrixDurationFormatter> durations;
    OmbrixTimerFormatter timer(kDay);
    EXPECT_EQ(OmbrixDurationFormatter(kDay).distinctMinVsMeters(), isMetric);
    for (const Case& test : cases) {
      const auto line = &test - cases;
      timer.setMinimumComponent(test.minimum);
      auto& duration = durations.try_emplace(test.minimum, test.minimum).first->second;
      EXPECT_EQ(duration.string(test.object), isMetric ? test.metric : test.imperial) << line;
      EXPECT_EQ(timer.string(test.object), test.timer) << line;
    }
  }
}

// Catches labels of another language, and a locale kept from an earlier call.
TEST(SpanFormatterTests, WritesInTheCurrentLocale) {
  testing::ScopedLocale locale("de_DE");
  const ScopedSettings kilometers("kilometers");
  OmbrixDurationFormatter duration(kSecond);
  OmbrixTimerFormatter timer(kSecond);
  EXPECT_EQ(duration.string(3'725), "1 STD., 2 MIN. UND 5 SEK.");
  locale.change("ar_EG");
  EXPECT_EQ(timer.string(3'725), "١:٠٢:٠٥");
}

// Catches text made of the wrong objects, and a number cut to what fits.
TEST(SpanFormatterTests, TakesComponentsAndNumbersThatFit) {
  const ScopedSettings kilometers("kilometers");
  OmbrixDurationFormatter duration(kSecond);
  OmbrixTimerFormatter timer(kSecond);
  for (const FormatterObject& object :
       {FormatterObject(), FormatterObject("60"),
        FormatterObject(platform::Measurement(1.0, platform::NSUnitLength::meters()))}) {
    EXPECT_EQ(duration.string(object), std::nullopt);
    EXPECT_EQ(timer.string(object), std::nullopt);
    EXPECT_FALSE(timer.attributedStringWithDefaultAttributes(object, {}));
  }
  EXPECT_EQ(timer.string(-0x1p63), "2,562,047,788,015,215:30:08");
  for (const double number : {0x1p63, -0x1.8p63, std::nan(""), 1 / 0.0}) {
    EXPECT_DEATH(timer.string(number), "fits no 64-bit integer") << number;
  }
}

// Catches unit letters styled with the attributes that are to be ignored.
TEST(SpanFormatterTests, UnitLettersTakeTheValueAttributes) {
  using Key = platform::NSAttributedString::Key;
  const platform::UIFont large("Inter", 20), small("Inter", 10);
  OmbrixDurationFormatter duration(kSecond);
  const auto apart =
      duration.attributedStringWithValueAttributes(7, {{Key::font, large}}, {{Key::font, small}});
  ASSERT_TRUE(apart);
  EXPECT_EQ(apart->string(), "7S");
  EXPECT_EQ(*apart->runAt(1).attributes->find<platform::UIFont>(Key::font), large);
  const auto together = duration.attributedStringWithDefaultAttributes(7, {{Key::font, large}});
  EXPECT_EQ(together->runAt(1).attributes->find<platform::UIFont>(Key::font)->pointSize(), 15);
}

// Catches a race on the tables that formatters share (run it under tsan); each thread has its own
// instances.
TEST(SpanFormatterTests, AllFormattersServeSeveralThreadsAtOnce) {
  const ScopedSettings miles("miles");
  std::vector<std::jthread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] {
      using Format = OmbrixMeasurementFormatter::MeasurementFormat;
      OmbrixMeasurementFormatter sum(Format::totalVertical), weight(Format::weight),
          pulse(Format::heartRate);
      OmbrixDurationFormatter duration(kSecond);
      OmbrixTimerFormatter timer(kSecond);
      for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(sum.string(12'345), "40.5K FT");
        EXPECT_EQ(weight.string(71.5), "158 LB");
        EXPECT_EQ(pulse.attributedStringWithDefaultAttributes(128, {})->string(), "128 BPM");
        EXPECT_EQ(duration.string(3'725), "1H 2M 5S");
        EXPECT_EQ(timer.string(3'725), "1:02:05");
      }
    });
  }
}

}  // namespace
}  // namespace ombrix

#include "OmbrixPlatform/Measure/NSDateComponentsFormatter.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace ombrix::platform {
namespace {

using Style = NSDateComponentsFormatterUnitsStyle;
using Zeros = NSDateComponentsFormatterZeroFormattingBehavior;

constexpr NSCalendarUnit kD = NSCalendarUnit::day;
constexpr NSCalendarUnit kHM = NSCalendarUnit::hour | NSCalendarUnit::minute;
constexpr NSCalendarUnit kHMS = kHM | NSCalendarUnit::second;
constexpr NSCalendarUnit kDH = kD | NSCalendarUnit::hour;
constexpr NSCalendarUnit kMS = NSCalendarUnit::minute | NSCalendarUnit::second;

struct Case {
  const char* locale;
  Style style;
  Zeros zeros;
  NSCalendarUnit allowed;
  NSDateComponents components;
  const char* text;
};

NSDateComponents seconds(std::int64_t s) { return {.second = s}; }

// Catches a zero that is dropped or padded where it should not be, and parts that are lost where
// units are not allowed.
TEST(NSDateComponentsFormatterTests, SpreadsAndWritesTheParts) {
  constexpr auto pos = Style::positional, abbr = Style::abbreviated, brief = Style::shortStyle;
  constexpr auto std = Zeros::defaultBehavior, lead = Zeros::dropLeading;
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  const Case cases[] = {
      {"en_US", pos, std, kHMS, seconds(3'610), "1:00:10"},
      {"en_US", pos, std, kHMS, seconds(0), "0"},
      {"en_US", pos, std, kHMS, {.day = 1, .second = 1}, "24:00:01"},
      {"en_US", pos, std, kHMS, seconds(-3'725), "-1:02:05"},
      {"en_US", pos, std, kMS, {.hour = 2, .minute = 1}, "121:00"},
      {"en_US", pos, std, kDH, {.hour = 50}, "2d 2h"},
      {"en_US", abbr, std, kHMS, seconds(3'610), "1h 10s"},
      {"en_US", abbr, lead, kHMS, seconds(0), "0s"},
      {"en_US", abbr, lead, kHMS, seconds(600), "10m 0s"},
      {"en_US", abbr, std, kDH, {.minute = -90}, "-1h"},
      {"en_US", abbr, std, kHMS, {.hour = 2, .minute = -30}, "1h 30m"},
      {"en_US", abbr, std, kHM, {.day = kMax, .minute = 1}, "221,360,928,884,514,619,368h 1m"},
      {"en_US", brief, lead, kHM, seconds(3'000), "50 min"},
      {"en_US", Style::full, std, kHMS, seconds(3'661), "1 hour, 1 minute, 1 second"},
  };
  NSDateComponentsFormatter formatter;
  for (const Case& test : cases) {
    formatter.setLocale(Locale(test.locale));
    formatter.setUnitsStyle(test.style);
    formatter.setZeroFormattingBehavior(test.zeros);
    formatter.setAllowedUnits(test.allowed);
    EXPECT_EQ(formatter.stringFrom(test.components), test.text) << test.locale;
  }
}

// Catches text made up for nothing to show.
TEST(NSDateComponentsFormatterTests, HasNoTextForOtherObjectsOrWithoutUnits) {
  NSDateComponentsFormatter formatter;
  EXPECT_EQ(formatter.string(FormatterObject("1:00")), std::nullopt);
  EXPECT_EQ(formatter.string(FormatterObject()), std::nullopt);
  formatter.setAllowedUnits(NSCalendarUnit::year | NSCalendarUnit::month);
  EXPECT_EQ(formatter.stringFrom(seconds(60)), std::nullopt);
}

}  // namespace
}  // namespace ombrix::platform

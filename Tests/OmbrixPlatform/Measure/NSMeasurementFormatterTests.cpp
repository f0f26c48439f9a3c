#include "OmbrixPlatform/Measure/NSMeasurementFormatter.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace ombrix::platform {
namespace {

using Rounding = NSNumberFormatterRoundingMode;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Catches half-even rounding, rounding of the binary value, and a suffix on negative numbers.
TEST(NSNumberFormatterTests, WritesNumbersAsSet) {
  struct Case {
    const char* locale;
    int digits;
    Rounding rounding;
    const char* suffix;
    double number;
    const char* text;
  };
  const Case cases[] = {
      {"en_US", 1, Rounding::halfUp, "", 0.25, "0.3"},
      {"en_US", 1, Rounding::halfUp, "", 1.05, "1.1"},
      {"en_US", 1, Rounding::halfEven, "", 0.25, "0.2"},
      {"en_US", 2, Rounding::halfUp, "", 2.675, "2.68"},
      {"en_US", 1, Rounding::down, "k", 0.29, "0.2k"},
      {"en_US", 1, Rounding::down, "k", 1'000, "1,000.0k"},
      {"en_US", 1, Rounding::down, "k", -1.29, "-1.2"},
      {"en_US", 1, Rounding::down, "k", -0.09, "0.0k"},
      {"en_US", 0, Rounding::halfUp, "", -0.4, "0"},  // without a sign
      {"en_US", 0, Rounding::halfUp, "", kInfinity, "∞"},
      {"fr_FR", 1, Rounding::halfUp, "", 1'036, "1\u202f036,0"},
      {"es_ES", 0, Rounding::halfUp, "", 12'345, "12.345"},
      {"ar_EG", 1, Rounding::halfUp, "", 1'036, "١٬٠٣٦٫٠"},
      {"", 1, Rounding::halfUp, "", 1'036, "1,036.0"},
  };
  for (const Case& test : cases) {
    const NSNumberFormatter formatter({.locale = Locale(test.locale),
                                       .minimumFractionDigits = test.digits,
                                       .maximumFractionDigits = test.digits,
                                       .roundingMode = test.rounding,
                                       .positiveSuffix = test.suffix});
    EXPECT_EQ(formatter.string(test.number), test.text) << test.locale;
  }
  const NSNumberFormatter bare(
      {.locale = Locale("en_US"), .decimalSeparator = "", .groupingSeparator = ""});
  EXPECT_EQ(bare.string(1'234'567), "1234567");
}

// Catches a number taken from the front of a text that goes on.
TEST(NSNumberFormatterTests, ReadsWholeNumbersOnly) {
  const NSNumberFormatter english({.locale = Locale("en_US"), .maximumFractionDigits = 1});
  const NSNumberFormatter german({.locale = Locale("de_DE"), .maximumFractionDigits = 1});
  EXPECT_EQ(english.number("1,036.5"), 1'036.5);
  EXPECT_EQ(german.number("1.036,5"), 1'036.5);
  EXPECT_EQ(english.number("-3"), -3);
  for (const char* text : {"", " ", "12 km", "twelve", "1.2.3", "\xff"}) {
    EXPECT_EQ(english.number(text), std::nullopt) << text;
  }
}

// Catches tables kept for the style, the digits or the unit that were set before.
TEST(NSMeasurementFormatterTests, ChangesTakeEffectAtOnce) {
  NSMeasurementFormatter formatter(NSFormattingUnitStyle::mediumStyle,
                                   NSNumberFormatter({.locale = Locale("en_US")}));
  EXPECT_EQ(formatter.string(Measurement(3.0, NSUnitLength::feet())), "3 ft");
  EXPECT_EQ(formatter.string(Measurement(3.0, NSUnitLength::miles())), "3 mi");
  formatter.setUnitStyle(NSFormattingUnitStyle::longStyle);
  EXPECT_EQ(formatter.string(Measurement(3.0, NSUnitLength::feet())), "3 feet");
  formatter.setNumberFormatter(NSNumberFormatter({.locale = Locale("de_DE")}));
  EXPECT_EQ(formatter.string(Measurement(3.0, NSUnitLength::feet())), "3 Fuß");

  EXPECT_EQ(formatter.string(FormatterObject("3")), std::nullopt);
  EXPECT_EQ(formatter.getObjectValue("3", NSUnitMass::pounds()),
            AnyMeasurement(Measurement(3.0, NSUnitMass::pounds())));
  EXPECT_EQ(formatter.getObjectValue("3 Fuß", NSUnitLength::feet()).error(),
            "The text “3 Fuß” is not a number.");
}

}  // namespace
}  // namespace ombrix::platform

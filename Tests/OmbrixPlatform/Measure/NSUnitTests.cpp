#include "OmbrixPlatform/Measure/NSUnit.hpp"

#include <gtest/gtest.h>

#include <string>

#include "OmbrixPlatform/Measure/Measurement.hpp"

namespace ombrix::platform {
namespace {

template <class Unit>
double converted(double value, const Unit& from, const Unit& to) {
  return Measurement<Unit>(value, from).converted(to).value;
}

// Catches a changed coefficient, and a conversion that goes the wrong way.
TEST(NSUnitTests, ConvertsByTheCoefficientsOfThePlatform) {
  using L = NSUnitLength;
  using S = NSUnitSpeed;
  using T = NSUnitTemperature;
  EXPECT_DOUBLE_EQ(converted(1, L::miles(), L::meters()), 1609.34);
  EXPECT_DOUBLE_EQ(converted(2.5, L::kilometers(), L::centimeters()), 250'000);
  EXPECT_DOUBLE_EQ(converted(10, L::feet(), L::meters()), 3.048);
  EXPECT_DOUBLE_EQ(converted(10, L::inches(), L::centimeters()), 25.4);
  EXPECT_DOUBLE_EQ(converted(10, S::metersPerSecond(), S::kilometersPerHour()), 10 / 0.277778);
  EXPECT_DOUBLE_EQ(converted(10, S::milesPerHour(), S::metersPerSecond()), 4.4704);
  EXPECT_DOUBLE_EQ(converted(0, T::celsius(), T::kelvin()), 273.15);
  EXPECT_NEAR(converted(-40, T::celsius(), T::fahrenheit()), -40, 1e-9);
  EXPECT_DOUBLE_EQ(converted(70, NSUnitMass::kilograms(), NSUnitMass::pounds()), 70 / 0.45359237);
  EXPECT_DOUBLE_EQ(converted(1, NSUnitEnergy::kilocalories(), NSUnitEnergy::joules()), 4184);
}

// Catches identity in place of value equality, and a symbol that dies with its maker.
TEST(NSUnitTests, UnitsAreEqualBySymbolAndConverter) {
  EXPECT_EQ(NSUnitLength::feet(), NSUnitLength("ft", NSUnitConverterLinear(0.3048)));
  EXPECT_FALSE(NSUnitLength::feet() == NSUnitLength("ft", NSUnitConverterLinear(0.3)));
  EXPECT_FALSE(NSUnitLength::feet() == NSUnitLength("feet", NSUnitConverterLinear(0.3048)));

  auto symbol = std::make_unique<std::string>("a symbol longer than any small buffer");
  const NSUnitFrequency own(*symbol, NSUnitConverterLinear(60));
  const NSUnitFrequency copy = own;
  symbol.reset();
  EXPECT_EQ(copy.symbol(), "a symbol longer than any small buffer");
  EXPECT_EQ(copy, own);
  EXPECT_EQ(Measurement(1.0, own), Measurement(60.0, NSUnitFrequency::hertz()));
}

// Catches a locale asked without its likely region, and a mixed unit let through.
TEST(NSUnitTests, ALocaleHasItsPreferredUnits) {
  struct Case {
    const char* locale;
    NSUnitMass weight;
    NSUnitTemperature weather;
  };
  const auto kg = NSUnitMass::kilograms(), lb = NSUnitMass::pounds();
  const auto c = NSUnitTemperature::celsius(), f = NSUnitTemperature::fahrenheit();
  const Case cases[] = {
      {"en_US", lb, f}, {"en", lb, f},    {"en_GB", lb, c}, {"de_DE", kg, c}, {"fr", kg, c},
      {"en_CA", kg, c}, {"ja_JP", kg, c}, {"en_AU", kg, c}, {"en_BS", kg, f}, {"es_PR", kg, f},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.locale);
    const Locale locale(test.locale);
    EXPECT_EQ(NSUnitMass::forLocale(locale, NSUnitMass::Usage::personWeight), test.weight);
    EXPECT_EQ(NSUnitTemperature::forLocale(locale, NSUnitTemperature::Usage::weather),
              test.weather);
    EXPECT_EQ(NSUnitEnergy::forLocale(locale, NSUnitEnergy::Usage::workout),
              NSUnitEnergy::kilocalories());
  }
}

}  // namespace
}  // namespace ombrix::platform

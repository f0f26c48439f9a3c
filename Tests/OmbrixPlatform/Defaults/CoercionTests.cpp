#include <gtest/gtest.h>

#include <cmath>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

// Catches a value that is read as another kind in another way than hosts expect: command lines
// carry texts only, older versions stored numbers for truth values.
TEST(CoercionTests, NumbersTextsAndTruthValuesStandInForEachOther) {
  struct Case {
    PropertyList value;
    bool asBool;
    std::int64_t asInteger;
    double asDouble;
    std::optional<std::string> asString;
  };
  const std::string tiny = "0." + std::string(340, '0') + "1";
  const Case cases[] = {
      {true, true, 1, 1, "1"},
      {false, false, 0, 0, "0"},
      {0, false, 0, 0, "0"},
      {-7, true, -7, -7, "-7"},
      {UINT64_MAX, true, INT64_MAX, 0x1p64, "18446744073709551615"},
      {0.1, true, 0, 0.1, "0.1"},
      {-2.9, true, -2, -2.9, "-2.9"},
      {1e300, true, INT64_MAX, 1e300, "1e+300"},
      {"YES", true, 0, 0, "YES"},
      {"true", true, 0, 0, "true"},
      {"1", true, 1, 1, "1"},
      {"NO", false, 0, 0, "NO"},
      {"false", false, 0, 0, "false"},
      {"0", false, 0, 0, "0"},
      {" -0012.5 km", true, -12, -12.5, " -0012.5 km"},
      {"+3", true, 3, 3, "+3"},
      {"+-3", false, 0, 0, "+-3"},
      {"inf", false, 0, 0, "inf"},
      {"99999999999999999999", true, INT64_MAX, 99999999999999999999.0, "99999999999999999999"},
      {"1e999", true, 1, HUGE_VAL, "1e999"},
      {"1e-999", true, 1, 0, "1e-999"},
      {tiny, false, 0, 0, tiny},
      {PropertyList::Array{1}, false, 0, 0, std::nullopt},
      {dateSince1970(5), false, 0, 0, std::nullopt},
      {dataFrom("1"), false, 0, 0, std::nullopt},
  };
  const testing::ScopedDir dir;
  const auto defaults = UserDefaults::make({.folder = dir.path(), .domain = "test"});
  for (const auto& [value, asBool, asInteger, asDouble, asString] : cases) {
    defaults->registerDefaults({{"key", value}});
    const auto name = asString.value_or(std::string(nameOf(value.kind())));
    EXPECT_EQ(defaults->boolForKey("key"), asBool) << name;
    EXPECT_EQ(defaults->integerForKey("key"), asInteger) << name;
    EXPECT_EQ(defaults->doubleForKey("key"), asDouble) << name;
    EXPECT_EQ(defaults->stringForKey("key"), asString) << name;
    EXPECT_FALSE(defaults->dictionaryForKey("key")) << name;
  }
}

}  // namespace
}  // namespace ombrix::platform

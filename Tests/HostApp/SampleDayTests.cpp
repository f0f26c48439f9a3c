#include "Examples/HostApp/Days/SampleDay.hpp"

#include <gtest/gtest.h>

#include "OmbrixDay/Measuring/DayMeasurer.hpp"

namespace ombrix::hostapp {
namespace {

// Catches a generator that depends on the machine, or whose days no longer look like skiing.
TEST(SampleDayTests, IsRepeatableAndLooksLikeSkiing) {
  const auto fixes = makeSampleDay({.seed = 7, .runs = 3});
  EXPECT_EQ(fixes, makeSampleDay({.seed = 7, .runs = 3}));
  EXPECT_NE(fixes, makeSampleDay({.seed = 8, .runs = 3}));

  const DayTotals totals = measureDay(fixes).totals;
  EXPECT_EQ(totals.runs, 3u);
  EXPECT_EQ(totals.lifts, 3u);
  EXPECT_NEAR(*totals.maxAltitude - *totals.minAltitude, 1240, 30);
  EXPECT_NEAR(totals.all.ascentMeters, 760 + 760 + 810, 60);
  EXPECT_LT(totals.all.maxSpeedMetersPerSecond, 30);
}

}  // namespace
}  // namespace ombrix::hostapp

#include "Examples/HostApp/SampleDay.hpp"

#include <gtest/gtest.h>

#include "Examples/HostApp/DaySummary.hpp"

namespace ombrix::hostapp {
namespace {

// Catches a generator that depends on the machine, or whose days no longer look like skiing.
TEST(SampleDayTests, IsRepeatableAndLooksLikeSkiing) {
  const auto fixes = makeSampleDay({.seed = 7, .runs = 3});
  EXPECT_EQ(fixes, makeSampleDay({.seed = 7, .runs = 3}));
  EXPECT_NE(fixes, makeSampleDay({.seed = 8, .runs = 3}));

  const DaySummary day = summarize(fixes, 0, FixFilter::accurateForStats);
  EXPECT_LT(day.usedForStats, day.rows);
  EXPECT_NEAR(*day.maxAltitudeMeters - *day.minAltitudeMeters, 760, 30);
  EXPECT_GT(day.ascentMeters, 3 * 700);
  EXPECT_GT(day.descentMeters, 3 * 700);
  EXPECT_GT(day.maxSpeedMetersPerSecond, 8);
  EXPECT_LT(day.maxSpeedMetersPerSecond, 30);
}

}  // namespace
}  // namespace ombrix::hostapp

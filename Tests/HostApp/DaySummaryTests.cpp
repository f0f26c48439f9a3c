#include "Examples/HostApp/DaySummary.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace ombrix::hostapp {
namespace {

CLLocation fix(double seconds, double altitude, double speed, double accuracy = 5) {
  CLLocation location;
  location.coordinate = {46.5 + seconds * 1e-5, 7.25};
  location.altitude = altitude;
  location.horizontalAccuracy = accuracy;
  location.verticalAccuracy = accuracy;
  location.speed = speed;
  location.timestamp = platform::dateSince1970(1'700'000'000 + seconds);
  return location;
}

// Catches figures that count a fix the statistics leave out, or that bridge over it wrongly.
TEST(DaySummaryTests, LeavesOutFixesThatDoNotCount) {
  const std::vector<CLLocation> fixes = {
      fix(0, 1500, -1),      fix(10, 1500, 4),       fix(20, 1510, 6),
      fix(30, 9000, 99, 61), fix(40, 1490, 5, 60.0), fix(50, 1495, 2),
  };
  const DaySummary day = summarize(fixes, 3, FixFilter::accurateForStats);
  EXPECT_EQ(day.rows, 6u);
  EXPECT_EQ(day.skipped, 3u);
  EXPECT_EQ(day.usedForStats, 4u);
  EXPECT_EQ(platform::timeIntervalSince1970(*day.startTime), 1'700'000'010);
  EXPECT_EQ(day.spanSeconds(), 40);
  EXPECT_DOUBLE_EQ(day.ascentMeters, 15);
  EXPECT_DOUBLE_EQ(day.descentMeters, 20);
  EXPECT_EQ(day.maxSpeedMetersPerSecond, 6);
  EXPECT_NEAR(day.distanceMeters, 44.46443, 1e-4);
  EXPECT_DOUBLE_EQ(day.averageSpeedMetersPerSecond, day.distanceMeters / 40);
  EXPECT_EQ(day.minAltitudeMeters, 1490);
  EXPECT_EQ(day.maxAltitudeMeters, 1510);

  const DaySummary all = summarize(fixes, 0, FixFilter::all);
  EXPECT_EQ(all.usedForStats, 6u);
  EXPECT_EQ(all.maxAltitudeMeters, 9000);
}

// Catches a single impossible fix that spoils all figures, and figures that no JSON can hold.
TEST(DaySummaryTests, LeavesOutFixesThatCannotBe) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<CLLocation> good = {fix(0, 1500, 4), fix(10, 1510, 6), fix(20, 1490, 5)};
  const auto expected = summarize(good, 0, FixFilter::all);
  const struct {
    double CLLocation::* number;
    double value;
  } cases[] = {{&CLLocation::altitude, kNan},
               {&CLLocation::altitude, 1e300},
               {&CLLocation::speed, 1e300},
               {&CLLocation::course, kNan},
               {&CLLocation::horizontalAccuracy, kNan}};
  std::vector<CLLocation> bad(std::size(cases) + 5, fix(5, 1500, 5));
  for (std::size_t i = 0; i < std::size(cases); ++i) bad[i].*cases[i].number = cases[i].value;
  bad[std::size(cases)].coordinate.latitude = 999;
  bad[std::size(cases) + 1].coordinate.longitude = 1e300;
  bad[std::size(cases) + 2].coordinate.latitude = kNan;
  bad[std::size(cases) + 3].timestamp = platform::dateSince1970(kNan);
  bad[std::size(cases) + 4].timestamp = platform::dateSince1970(1e300);
  for (const CLLocation& one : bad) {
    const auto day = summarize(std::vector{good[0], one, good[1], good[2]}, 0, FixFilter::all);
    EXPECT_EQ(day.offGlobe, 1u) << &one - bad.data();
    EXPECT_EQ(day.rows, 4u);
    EXPECT_EQ(day.distanceMeters, expected.distanceMeters);
    EXPECT_EQ(day.ascentMeters, expected.ascentMeters);
    EXPECT_EQ(day.maxSpeedMetersPerSecond, expected.maxSpeedMetersPerSecond);
  }
  DaySummary endless = expected;
  endless.distanceMeters = kNan;
  EXPECT_NE(toJSON(endless).find(R"("distanceMeters":null)"), std::string::npos);
}

// Catches not-a-number or invented values where nothing was recorded.
TEST(DaySummaryTests, ADayWithoutFixesHasNoFigures) {
  EXPECT_EQ(
      toJSON(summarize({}, 2, FixFilter::accurateForStats)),
      R"({"rows":0,"skipped":2,"usedForStats":0,"offGlobe":0,"startTime":null,"endTime":null,)"
      R"("distanceMeters":0,"ascentMeters":0,"descentMeters":0,)"
      R"("maxSpeedMetersPerSecond":0,"averageSpeedMetersPerSecond":0,)"
      R"("minAltitudeMeters":null,"maxAltitudeMeters":null})");
  const std::vector<CLLocation> one = {fix(0, 1500, 3)};
  EXPECT_EQ(summarize(one, 0, FixFilter::accurateForStats).averageSpeedMetersPerSecond, 0);
}

}  // namespace
}  // namespace ombrix::hostapp

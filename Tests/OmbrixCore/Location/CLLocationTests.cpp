#include "OmbrixCore/Location/CLLocation.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

namespace ombrix {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

CLLocation sampleFix() {
  return {.coordinate = {46.5, 9.8},
          .altitude = 2'300,
          .horizontalAccuracy = 5,
          .verticalAccuracy = 8,
          .course = 37,
          .courseAccuracy = 2,
          .speed = 12.5,
          .speedAccuracy = 0.5,
          .timestamp = platform::dateSince1970(1'700'000'000.25)};
}

// Catches a rounding grid, and equal coordinates whose hashes differ.
TEST(CoordinateTests, EqualityCutsToMicrodegrees) {
  const struct {
    CLLocationCoordinate2D a, b;
    bool equal;
  } cases[] = {
      {{1.0000001, 0}, {1.0000005, 0}, true},
      {{1.0000009, 0}, {1.0000011, 0}, false},  // a hair apart, across an edge
      {{-0.0000009, 0}, {0.0000009, 0}, true},  // the cell around zero is twice as wide
      {{0, -0.0000009}, {0, 0.0000009}, true},
      {{0, 7}, {0, 7.000002}, false},
      {{1, 2}, {2, 1}, false},
      {{9e12, 0}, {9e12, 0}, true},
  };
  for (const auto& [a, b, equal] : cases) {
    EXPECT_EQ(a == b, equal) << a.latitude << ' ' << b.latitude;
    if (!equal) continue;
    EXPECT_EQ(std::hash<CLLocationCoordinate2D>{}(a), b.hashValue());
  }
  EXPECT_NE((CLLocationCoordinate2D{1, 2}.hashValue()), (CLLocationCoordinate2D{2, 1}.hashValue()));
}

// Catches a silent fallback for values that have no cell.
TEST(CoordinateDeathTests, AValueWithoutACellStopsTheProgram) {
  for (const double value : {kNaN, kInfinity, -kInfinity, 9.3e12, -9.3e12}) {
    const CLLocationCoordinate2D off{0, value};
    EXPECT_DEATH((void)(off == off), "no grid cell");
    EXPECT_DEATH((void)off.hashValue(), "no grid cell");
  }
  CLLocation fix = sampleFix();
  fix.verticalAccuracy = kNaN;
  EXPECT_DEATH((void)(fix == fix), "no grid cell");
  EXPECT_DEATH((void)fix.hash(), "no grid cell");
}

// Catches bearings below zero, swapped ends, and a "mended" 360.
TEST(CoordinateTests, Courses) {
  const struct {
    CLLocationCoordinate2D from, to;
    double course;
  } cases[] = {
      {{0, 0}, {1, 0}, 0},
      {{0, 0}, {0, 1}, 90},
      {{1, 0}, {0, 0}, 180},
      {{0, 0}, {0, -1}, 270},
      {{10, 20}, {10, 20}, 0},
      {{0, 0}, {1, -1e-17}, 360},  // rounds up to the full turn
      {{46.5, 9.8}, {46.6, 9.9}, 34.48084371545363},
  };
  for (const auto& [from, to, course] : cases) {
    EXPECT_DOUBLE_EQ(from.courseTo(to), course);
    EXPECT_DOUBLE_EQ(to.courseFrom(from), course);
    EXPECT_DOUBLE_EQ(CLLocationCoordinateCourse(from, to), course);
  }
}

// Catches the fold at half a turn taken on the wrong side.
TEST(CoordinateTests, DegreesDifference) {
  const struct {
    double a, b, difference;
  } cases[] = {{10, 350, 20}, {0, 180, 180},  {359, 1, 2},
               {0, 0, 0},     {90, 270, 180}, {-30, 730, 40}};
  for (const auto& [a, b, difference] : cases) {
    EXPECT_EQ(CLLocationDegreesDifference(a, b), difference);
    EXPECT_EQ(CLLocationDegreesDifference(b, a), difference);
  }
}

// Catches a wrapped longitude, a turn beyond 90 degrees, and kilometres taken for metres.
TEST(CoordinateTests, Move) {
  const struct {
    CLLocationCoordinate2D from;
    double course, distance;
    CLLocationCoordinate2D to;
  } cases[] = {
      {{46.5, 9.8}, 37, 1'200, {46.50861836052984, 9.80943659381762}},
      {{46.5, 9.8}, 37, 0, {46.5, 9.8}},
      {{0, 179.9}, 90, 50'000, {0, 180.34966009716734}},  // past the antimeridian
      {{89.9, 0}, 0, 22'239, {89.90000018198094, 0}},     // over the pole, same longitude
      {{-33, 151}, 270, 5e6, {-22.665244113491198, 101.01904513029778}},
  };
  for (const auto& [from, course, distance, to] : cases) {
    const CLLocationCoordinate2D reached = from.move(course, distance);
    EXPECT_NEAR(reached.latitude, to.latitude, 1e-13);
    EXPECT_NEAR(reached.longitude, to.longitude, 1e-13);
    EXPECT_EQ(from.move(course, distance / 2, 2).latitude, reached.latitude);
  }
  const CLLocationCoordinate2D pole = CLLocationCoordinate2D{90, 5}.move(10, 0);
  EXPECT_EQ(pole.latitude, 90);
  EXPECT_TRUE(std::isnan(pole.longitude));
}

// Catches a field that takes part in the equality and should not, or the reverse, and its grid.
TEST(CLLocationTests, EqualityFieldByField) {
  const struct {
    const char* name;
    double CLLocation::* field;
    double inside, outside;  // changes that keep, and that break, the equality
  } cases[] = {
      {"altitude", &CLLocation::altitude, 500, 0},
      {"courseAccuracy", &CLLocation::courseAccuracy, 50, 0},
      {"speedAccuracy", &CLLocation::speedAccuracy, kNaN, 0},
      {"speed", &CLLocation::speed, 0.009, 0.011},
      {"course", &CLLocation::course, 0.09, 0.11},
      {"horizontalAccuracy", &CLLocation::horizontalAccuracy, 0.09, -0.01},
      {"verticalAccuracy", &CLLocation::verticalAccuracy, 0.09, 0.1},
  };
  const CLLocation fix = sampleFix();
  for (const auto& [name, field, inside, outside] : cases) {
    CLLocation other = fix;
    other.*field += inside;
    EXPECT_EQ(fix, other) << name;
    EXPECT_EQ(fix.hash(), std::hash<CLLocation>{}(other)) << name;
    if (outside == 0) continue;
    other = fix;
    other.*field += outside;
    EXPECT_NE(fix, other) << name;
  }
  CLLocation later = fix;
  later.timestamp += platform::TimeInterval(1e-6);
  EXPECT_NE(fix, later);
  later.speed = kNaN;
  EXPECT_NE(fix, later) << "the time differs, so the speed is not looked at";
}

// Catches a missing or foreign object that compares equal.
TEST(CLLocationTests, EqualityWithAnything) {
  const CLLocation fix = sampleFix();
  const CLLocation* const none = nullptr;
  EXPECT_TRUE(fix.isEqual(fix));
  EXPECT_TRUE(fix.isEqual(&fix));
  EXPECT_TRUE(fix.isEqual(std::optional(fix)));
  EXPECT_FALSE(fix.isEqual(std::optional<CLLocation>()));
  EXPECT_FALSE(fix.isEqual(none));
  EXPECT_FALSE(fix.isEqualToLocation(none));
  EXPECT_FALSE(fix.isEqual(nullptr));
  EXPECT_FALSE(fix.isEqual(std::string("46.5")));
  EXPECT_FALSE(fix.isEqual(fix.coordinate));
}

// Catches a lower bound on accuracies, "<" for "<=", and thresholds that are swapped.
TEST(CLLocationTests, AccuracyForStatistics) {
  const struct {
    double horizontal, vertical, speed;
    bool atSixty, atTenAndTwenty;
  } cases[] = {
      {60, 60, 0, true, false},   {60.1, 5, 0, false, false}, {5, 60.1, 0, false, false},
      {5, 5, -1, false, false},   {-1, -1, 0, true, true},    {10, 20, 1, true, true},
      {20, 10, 1, true, false},   {kNaN, 5, 0, false, false}, {5, kNaN, 0, false, false},
      {5, 5, kNaN, false, false},
  };
  const auto verdict = [](const auto& row) {
    return CLLocation{
        .horizontalAccuracy = row.horizontal, .verticalAccuracy = row.vertical, .speed = row.speed}
        .isAccurateForStats();
  };
  EXPECT_EQ(CLLocation::MinHorizontalAccuracyForStats(), 60);
  EXPECT_EQ(CLLocation::MinVerticalAccuracyForStats(), 60);
  for (const auto& row : cases) EXPECT_EQ(verdict(row), row.atSixty);
  CLLocation::setMinHorizontalAccuracyForStats(10);
  CLLocation::setMinVerticalAccuracyForStats(20);
  for (const auto& row : cases) EXPECT_EQ(verdict(row), row.atTenAndTwenty);
  CLLocation::setMinHorizontalAccuracyForStats(60);
  CLLocation::setMinVerticalAccuracyForStats(60);
}

// Catches a coefficient with a wrong digit or sign.
TEST(CLLocationTests, DegreesPerMetre) {
  const struct {
    double latitude, lat, lon;
  } cases[] = {
      {0, 9.04369477063422e-06, 8.983152828547855e-06},
      {46.5, 8.995954035910096e-06, 1.302717843153406e-05},
      {-46.5, 8.995954035910096e-06, 1.302717843153406e-05},
  };
  for (const auto& [latitude, lat, lon] : cases) {
    EXPECT_DOUBLE_EQ(CLLocation::metersToDegreesForLatAtLon(latitude), lat);
    EXPECT_DOUBLE_EQ(CLLocation::metersToDegreesForLonAtLat(latitude), lon);
  }
  EXPECT_GT(CLLocation::metersToDegreesForLonAtLat(90), 1e10);
}

// Catches signs, a division by no time, and components that are mixed up.
TEST(CLLocationTests, Speeds) {
  const struct {
    double seconds, climb, horizontal, vertical;
  } cases[] = {
      {10, 40, 11'131.9490793, 4},
      {10, -40, 11'131.9490793, 4},
      {-10, 40, 11'131.9490793, 4},
      {0, 40, 0, 0},
      {kNaN, 40, 0, 0},
  };
  const CLLocation start{.coordinate = {0, 0}, .altitude = 1'000, .speed = 3};
  for (const auto& [seconds, climb, horizontal, vertical] : cases) {
    CLLocation end = start;
    end.coordinate.longitude = 1;
    end.altitude += climb;
    end.timestamp += platform::TimeInterval(seconds);
    EXPECT_NEAR(end.horizontalSpeedFrom(start), horizontal, 1e-6);
    EXPECT_DOUBLE_EQ(end.verticalSpeedFrom(start), vertical);
    EXPECT_NEAR(end.speedFrom(start), std::hypot(horizontal, vertical), 1e-6);
  }
  EXPECT_EQ(start.speedByAddingVertical(4), 5);
  EXPECT_EQ(start.speedByAddingHorizontal(-4), 5);
}

// Catches fields that are lost on the way into a new fix.
TEST(CLLocationTests, MovedAndReplacedFixesKeepTheRest) {
  const CLLocation fix = sampleFix();
  CLLocation moved = fix.move(37, 100, 12);
  EXPECT_EQ(moved.coordinate, fix.coordinate.move(37, 1'200));
  moved.coordinate = fix.coordinate;
  CLLocation replaced = fix.replacingSpeed(3);
  EXPECT_EQ(replaced.speed, 3);
  replaced.speed = fix.speed;
  for (const CLLocation& same : {moved, replaced}) {
    EXPECT_EQ(std::memcmp(&same, &fix, sizeof fix), 0);
  }
}

// Catches a track's length that skips a leg or differs from its legs' sum.
TEST(CLLocationTests, LengthOfATrack) {
  const CLLocation fixes[] = {{.coordinate = {46.5, 9.8}},
                              {.coordinate = {46.6, 9.8}},
                              {.coordinate = {46.6, -170}},
                              {.coordinate = {46.6, -170}}};
  EXPECT_EQ(distanceAlong({}), 0);
  EXPECT_EQ(distanceAlong({fixes, 1}), 0);
  EXPECT_EQ(distanceAlong(fixes),
            fixes[0].distanceFrom(fixes[1]) +
                CLLocationCoordinateDistance(fixes[1].coordinate, fixes[2].coordinate));
}

}  // namespace
}  // namespace ombrix

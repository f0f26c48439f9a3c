#include <gtest/gtest.h>

#include "OmbrixC/Location/Detail/Location.hpp"

namespace ombrix::c {
namespace {

// Catches a field that changes places on its way through C.
TEST(LocationTests, TheStructsShareOneLayout) {
  const OmbrixLocation fix{{1, 2}, 3, 4, 5, 6, 7, 8, 9, 10};
  const CLLocation seen = from(fix);
  EXPECT_EQ(seen.coordinate.latitude, 1);
  EXPECT_EQ(seen.coordinate.longitude, 2);
  EXPECT_EQ(seen.altitude, 3);
  EXPECT_EQ(seen.horizontalAccuracy, 4);
  EXPECT_EQ(seen.verticalAccuracy, 5);
  EXPECT_EQ(seen.course, 6);
  EXPECT_EQ(seen.courseAccuracy, 7);
  EXPECT_EQ(seen.speed, 8);
  EXPECT_EQ(seen.speedAccuracy, 9);
  EXPECT_EQ(platform::timeIntervalSince1970(seen.timestamp), 10);
}

// Catches receiver and argument in the wrong order, and NULL taken for a fix.
TEST(LocationTests, SelectorsReachTheirOperations) {
  const OmbrixLocation south{{0, 0}, 100, 5, 5, -1, -1, 3, -1, 0};
  const OmbrixLocation north{{1, 0}, 140, 5, 5, -1, -1, 3, -1, 10};
  EXPECT_EQ(ombrix_CLLocation_courseToLocation_(&south, &north), 0);
  EXPECT_EQ(ombrix_CLLocation_courseFromLocation_(&south, &north), 180);
  EXPECT_EQ(ombrix_CLLocation_verticalSpeedComingFromLocation_(&north, &south), 4);
  EXPECT_EQ(ombrix_CLLocation_speedByAddingVerticalComponent_(&north, 4), 5);
  EXPECT_EQ(ombrix_CLLocation_newWithSpeed_(&north, 7).speed, 7);
  EXPECT_FALSE(ombrix_CLLocation_isEqual_(&south, nullptr));
  EXPECT_FALSE(ombrix_CLLocation_isEqualToLocation_(&south, nullptr));
  EXPECT_TRUE(ombrix_CLLocation_isEqual_(&south, &south));
}

}  // namespace
}  // namespace ombrix::c

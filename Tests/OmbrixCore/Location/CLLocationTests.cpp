#include "OmbrixCore/Location/CLLocation.hpp"

#include <gtest/gtest.h>

namespace ombrix {
namespace {

// Catches a rounding grid, or a fallback for values without a cell.
TEST(CLLocationTests, CoordinatesAreEqualByCutCells) {
  EXPECT_EQ((CLLocationCoordinate2D{-0.0000009, 0}), (CLLocationCoordinate2D{0.0000009, 0}));
  EXPECT_NE((CLLocationCoordinate2D{1.0000005, 0}), (CLLocationCoordinate2D{1.0000015, 0}));
}

}  // namespace
}  // namespace ombrix

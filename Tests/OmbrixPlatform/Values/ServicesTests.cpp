#include "OmbrixPlatform/Services.hpp"

#include <gtest/gtest.h>

#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

// Catches a double that outlives its scope, and a default that is made before it is asked for.
TEST(ServicesTests, ADoubleIsUsedOnlyInItsScope) {
  int made = 0;
  static int* counter = nullptr;
  counter = &made;
  ServiceSlot<Clock> slot(+[]() -> std::shared_ptr<Clock> {
    ++*counter;
    return makeSystemClock();
  });
  {
    const auto clock = std::make_shared<testing::ManualClock>(dateSince1970(5));
    const testing::ScopedService scoped(slot, clock);
    EXPECT_EQ(timeIntervalSince1970(slot.get().now()), 5);
    EXPECT_EQ(made, 0);
  }
  EXPECT_GT(timeIntervalSince1970(slot.get().now()), 1e9);
  slot.get();
  EXPECT_EQ(made, 1);
}

}  // namespace
}  // namespace ombrix::platform

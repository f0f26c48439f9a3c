#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "OmbrixC/OmbrixLibrary.h"
#include "OmbrixC/OmbrixOperationQueue.h"

namespace ombrix::c {
namespace {

/// Fails every test of this program that keeps a handle, a text or a list.
class LeakedHandles final : public ::testing::EmptyTestEventListener {
 public:
  void OnTestStart(const ::testing::TestInfo&) override { before_ = ombrix_Library_liveHandles(); }
  void OnTestEnd(const ::testing::TestInfo&) override { check(); }

  void check() const {
    EXPECT_EQ(ombrix_Library_liveHandles(), before_) << "a handle was not released";
  }

 private:
  std::size_t before_ = 0;
};

LeakedHandles* const kListener = [] {
  auto* const listener = new LeakedHandles;
  ::testing::UnitTest::GetInstance()->listeners().Append(listener);
  return listener;
}();

// Catches a count that misses what is kept, or what is given back.
TEST(LeakedHandlesTests, AKeptHandleFailsItsTest) {
  kListener->check();
  auto* const queue = ombrix_OperationQueue_init();
  EXPECT_NONFATAL_FAILURE(kListener->check(), "a handle was not released");
  ombrix_OperationQueue_release(queue);
  kListener->check();
}

}  // namespace
}  // namespace ombrix::c

#include "OmbrixC/OmbrixOperationQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <semaphore>

namespace ombrix::c {
namespace {

struct Work {
  std::atomic<int> done = 0;
  int doneAtBarrier = -1;
  std::binary_semaphore finished{0};
};

// Catches blocks that are lost or called with another's context, and a barrier that does not wait.
TEST(OperationQueueTests, TheBarrierComesAfterTheWork) {
  Work work;
  auto* const queue = ombrix_OperationQueue_init();
  for (int i = 0; i < 20; ++i) {
    ombrix_OperationQueue_addOperationWithBlock_(
        queue, [](void* context) { ++static_cast<Work*>(context)->done; }, &work);
  }
  ombrix_OperationQueue_addCompletionBarrierBlock_(
      queue,
      [](void* context) {
        auto& finished = *static_cast<Work*>(context);
        finished.doneAtBarrier = finished.done;
        finished.finished.release();
      },
      &work);
  EXPECT_TRUE(work.finished.try_acquire_for(std::chrono::seconds(30)));
  EXPECT_EQ(work.doneAtBarrier, 20);
  ombrix_OperationQueue_release(queue);
}

// Catches a missing block that crashes later, on a thread that tells nothing of the caller.
TEST(OperationQueueTests, AMissingBlockIsRefusedAtTheCall) {
  auto* const queue = ombrix_OperationQueue_init();
  EXPECT_DEATH(ombrix_OperationQueue_addOperationWithBlock_(queue, nullptr, nullptr), "NULL block");
  EXPECT_DEATH(ombrix_OperationQueue_addCompletionBarrierBlock_(queue, nullptr, nullptr),
               "NULL block");
  ombrix_OperationQueue_release(queue);
}

}  // namespace
}  // namespace ombrix::c

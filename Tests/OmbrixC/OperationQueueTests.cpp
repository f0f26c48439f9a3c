#include "OmbrixC/OmbrixOperationQueue.h"

#include <gtest/gtest.h>

namespace ombrix::c {
namespace {

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

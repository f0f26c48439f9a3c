#include "OmbrixC/OmbrixOperationQueue.h"

#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixCore/Concurrency/AsyncOperation.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

using ombrix::c::catching;
using State = ombrix::AsyncOperation::OperationState;

static_assert(static_cast<int>(State::ready) == OmbrixOperationStateReady &&
              static_cast<int>(State::executing) == OmbrixOperationStateExecuting &&
              static_cast<int>(State::finished) == OmbrixOperationStateFinished);

struct OmbrixOperationQueue {
  std::shared_ptr<ombrix::platform::NSOperationQueue> queue;
  ombrix::c::Handle handle = {};
};

namespace {

// Checked when the block is added, while the caller can still be seen on the stack.
void requireBlock(OmbrixOperationBlock block) {
  if (block == nullptr) ombrix::platform::fatalError("an operation queue was given a NULL block");
}

}  // namespace

OmbrixOperationQueue* ombrix_OperationQueue_init() {
  return catching(
      nullptr, [] { return new OmbrixOperationQueue{ombrix::platform::NSOperationQueue::make()}; });
}

void ombrix_OperationQueue_release(OmbrixOperationQueue* self) { delete self; }

void ombrix_OperationQueue_addOperationWithBlock_(OmbrixOperationQueue* self,
                                                  OmbrixOperationBlock block, void* context) {
  requireBlock(block);
  catching(nullptr, [&] { self->queue->addOperation([=] { block(context); }); });
}

void ombrix_OperationQueue_addCompletionBarrierBlock_(OmbrixOperationQueue* self,
                                                      OmbrixOperationBlock block, void* context) {
  requireBlock(block);
  catching(nullptr,
           [&] { ombrix::addCompletionBarrierBlock(*self->queue, [=] { block(context); }); });
}

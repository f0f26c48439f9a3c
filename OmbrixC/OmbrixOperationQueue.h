#ifndef OMBRIXC_OMBRIX_OPERATION_QUEUE_H
#define OMBRIXC_OMBRIX_OPERATION_QUEUE_H

#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The state of an asynchronous operation.
typedef enum OmbrixOperationState {
  OmbrixOperationStateReady = 0,
  OmbrixOperationStateExecuting = 1,
  OmbrixOperationStateFinished = 2,
} OmbrixOperationState;

/// Runs operations on the global dispatch queue. Operations that were added run even if the queue
/// object is released first. Any thread.
typedef struct OmbrixOperationQueue OmbrixOperationQueue;

typedef void (*OmbrixOperationBlock)(void* context);

/// A queue, which the caller owns; NULL where memory runs out.
OmbrixOperationQueue* ombrix_OperationQueue_init(void);
/// Gives the queue back; NULL is allowed. Operations that were added run all the same.
void ombrix_OperationQueue_release(OmbrixOperationQueue* self);

/// Calls the block on one of the queue's threads. A NULL block stops the program.
void ombrix_OperationQueue_addOperationWithBlock_(OmbrixOperationQueue* self,
                                                  OmbrixOperationBlock block, void* context);

/// Calls the block once all operations added before have been started; never when the queue object
/// is released before that.
void ombrix_OperationQueue_addCompletionBarrierBlock_(OmbrixOperationQueue* self,
                                                      OmbrixOperationBlock block, void* context);

#ifdef __cplusplus
}
#endif

#endif

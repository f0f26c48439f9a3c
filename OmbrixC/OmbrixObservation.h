#ifndef OMBRIXC_OMBRIX_OBSERVATION_H
#define OMBRIXC_OMBRIX_OBSERVATION_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Keeps an observer registered until it is released.
typedef struct OmbrixObservation OmbrixObservation;

/// Called before (`isPrior`) and after a change of a property, on the thread that changes it.
typedef void (*OmbrixObserver)(const char* keyPath, bool isPrior, void* context);

/// Ends an observation: no call of its observer starts any more, and those on other threads have
/// ended. NULL is allowed.
void ombrix_Observation_release(OmbrixObservation* observation);

#ifdef __cplusplus
}
#endif

#endif

#ifndef OMBRIXC_NETWORKING_OMBRIX_API_HTTP_REQUEST_OPERATION_H
#define OMBRIXC_NETWORKING_OMBRIX_API_HTTP_REQUEST_OPERATION_H

#include <stdbool.h>

#include "OmbrixC/OmbrixOperationQueue.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A request to the product's web service, to be added to its client;
/// OmbrixCore/Networking/Requests/OmbrixAPIHttpRequestOperation.hpp says what each field means. Set
/// the fields before it is added; everything else may be called from any thread.
typedef struct OmbrixAPIHttpRequestOperation OmbrixAPIHttpRequestOperation;

/// A body to send, borrowed for the call; `bytes` is NULL when there is none.
typedef struct OmbrixPayload {
  const uint8_t* bytes;
  size_t length;
} OmbrixPayload;

/// How a request ended: its status, or -1 (no HTTP answer), -2 (refused by Low Data Mode), -3 (its
/// task was cancelled) or 400 (no request could be built). The body is borrowed for the call and
/// NULL when there is none.
typedef void (*OmbrixRequestCallback)(bool success, int code, const uint8_t* body, size_t length,
                                      void* context);

/// A request on the shared client's session, which the caller owns; NULL for a URL or method that
/// is none.
///
/// @param url An absolute URL, or a path below the base URL.
/// @param method As in "GET".
/// @param headers Names and values in turn, `headerCount` of both together.
/// @param callback Called once unless the operation is cancelled; may be NULL.
OmbrixAPIHttpRequestOperation* ombrix_APIHttpRequestOperation_initWithUrl_method_headers_callback_(
    const char* url, const char* method, const char* const* headers, size_t headerCount,
    OmbrixRequestCallback callback, void* context);
/// Gives the operation back; NULL is allowed. One that was added goes on.
void ombrix_APIHttpRequestOperation_release(OmbrixAPIHttpRequestOperation* self);

/// The ID for cancelling it; the caller owns the copy.
char* ombrix_APIHttpRequestOperation_taskID(const OmbrixAPIHttpRequestOperation* self);

/// Its state.
OmbrixOperationState ombrix_APIHttpRequestOperation_state(
    const OmbrixAPIHttpRequestOperation* self);
/// Whether it was cancelled.
bool ombrix_APIHttpRequestOperation_isCancelled(const OmbrixAPIHttpRequestOperation* self);
/// Cancels it: its callback is not called any more, unless that call is on its way on another
/// thread.
void ombrix_APIHttpRequestOperation_cancel(OmbrixAPIHttpRequestOperation* self);

/// Sets the body, which is copied; none for `bytes` NULL.
void ombrix_APIHttpRequestOperation_setPayload_(OmbrixAPIHttpRequestOperation* self,
                                                OmbrixPayload payload);

/// Whether it may use a constrained network (Low Data Mode); true at first.
bool ombrix_APIHttpRequestOperation_safeForLowData(const OmbrixAPIHttpRequestOperation* self);
/// Sets it.
void ombrix_APIHttpRequestOperation_setSafeForLowData_(OmbrixAPIHttpRequestOperation* self,
                                                       bool isSafe);
/// Whether the request needs a signed-in user; every request carries the token all the same. False
/// at first.
bool ombrix_APIHttpRequestOperation_usesAuth(const OmbrixAPIHttpRequestOperation* self);
/// Sets it.
void ombrix_APIHttpRequestOperation_setUsesAuth_(OmbrixAPIHttpRequestOperation* self,
                                                 bool usesAuth);
/// Whether stored answers are ignored, which takes precedence over `cacheOnly`; false at first.
bool ombrix_APIHttpRequestOperation_disableCashe(const OmbrixAPIHttpRequestOperation* self);
/// Sets it.
void ombrix_APIHttpRequestOperation_setDisableCashe_(OmbrixAPIHttpRequestOperation* self,
                                                     bool isDisabled);
/// Whether only a stored answer of any age is accepted; false at first.
bool ombrix_APIHttpRequestOperation_cacheOnly(const OmbrixAPIHttpRequestOperation* self);
/// Sets it.
void ombrix_APIHttpRequestOperation_setCacheOnly_(OmbrixAPIHttpRequestOperation* self,
                                                  bool cacheOnly);
/// Which attempt this is, from 1.
int ombrix_APIHttpRequestOperation_attempt(const OmbrixAPIHttpRequestOperation* self);
/// Sets it.
void ombrix_APIHttpRequestOperation_setAttempt_(OmbrixAPIHttpRequestOperation* self, int attempt);

#ifdef __cplusplus
}
#endif

#endif

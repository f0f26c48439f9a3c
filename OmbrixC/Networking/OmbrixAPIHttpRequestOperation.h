#ifndef OMBRIXC_NETWORKING_OMBRIX_API_HTTP_REQUEST_OPERATION_H
#define OMBRIXC_NETWORKING_OMBRIX_API_HTTP_REQUEST_OPERATION_H

#include <stdbool.h>

#include "OmbrixC/OmbrixOperationQueue.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A request to the product's web service, to be added to its client; what each field means is said
/// in OmbrixCore/Networking/Requests/OmbrixAPIHttpRequestOperation.hpp. Fields are set before it is
/// added; everything else may be called from any thread.
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

/// A request on the shared client's session; NULL for a URL or method that is none.
///
/// @param url An absolute URL, or a path below the base URL.
/// @param method As in "GET".
/// @param headers Names and values in turn, `headerCount` of both together.
/// @param callback Called once unless the operation is cancelled; may be NULL.
OmbrixAPIHttpRequestOperation* ombrix_APIHttpRequestOperation_initWithUrl_method_headers_callback_(
    const char* url, const char* method, const char* const* headers, size_t headerCount,
    OmbrixRequestCallback callback, void* context);
void ombrix_APIHttpRequestOperation_release(OmbrixAPIHttpRequestOperation* self);

/// The identity to cancel it by.
char* ombrix_APIHttpRequestOperation_taskID(const OmbrixAPIHttpRequestOperation* self);

OmbrixOperationState ombrix_APIHttpRequestOperation_state(
    const OmbrixAPIHttpRequestOperation* self);
bool ombrix_APIHttpRequestOperation_isCancelled(const OmbrixAPIHttpRequestOperation* self);
void ombrix_APIHttpRequestOperation_cancel(OmbrixAPIHttpRequestOperation* self);

void ombrix_APIHttpRequestOperation_setPayload_(OmbrixAPIHttpRequestOperation* self,
                                                OmbrixPayload payload);

bool ombrix_APIHttpRequestOperation_safeForLowData(const OmbrixAPIHttpRequestOperation* self);
void ombrix_APIHttpRequestOperation_setSafeForLowData_(OmbrixAPIHttpRequestOperation* self,
                                                       bool isSafe);
bool ombrix_APIHttpRequestOperation_usesAuth(const OmbrixAPIHttpRequestOperation* self);
void ombrix_APIHttpRequestOperation_setUsesAuth_(OmbrixAPIHttpRequestOperation* self,
                                                 bool usesAuth);
bool ombrix_APIHttpRequestOperation_disableCashe(const OmbrixAPIHttpRequestOperation* self);
void ombrix_APIHttpRequestOperation_setDisableCashe_(OmbrixAPIHttpRequestOperation* self,
                                                     bool isDisabled);
bool ombrix_APIHttpRequestOperation_cacheOnly(const OmbrixAPIHttpRequestOperation* self);
void ombrix_APIHttpRequestOperation_setCacheOnly_(OmbrixAPIHttpRequestOperation* self,
                                                  bool cacheOnly);
int ombrix_APIHttpRequestOperation_attempt(const OmbrixAPIHttpRequestOperation* self);
void ombrix_APIHttpRequestOperation_setAttempt_(OmbrixAPIHttpRequestOperation* self, int attempt);

#ifdef __cplusplus
}
#endif

#endif

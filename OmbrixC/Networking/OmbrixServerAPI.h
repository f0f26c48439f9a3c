#ifndef OMBRIXC_NETWORKING_OMBRIX_SERVER_API_H
#define OMBRIXC_NETWORKING_OMBRIX_SERVER_API_H

#include <stdbool.h>

#include "OmbrixC/Networking/OmbrixAPIHttpRequestOperation.h"
#include "OmbrixC/OmbrixDate.h"
#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixObservation.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The client of the product's web service; OmbrixCore/Networking/OmbrixServerAPI.hpp says what
/// each operation does. Any thread.
typedef struct OmbrixServerAPI OmbrixServerAPI;

/// "Production", "Staging" and "Development".
typedef enum OmbrixAPIEndpoint {
  OmbrixAPIEndpointProduction,
  OmbrixAPIEndpointStaging,
  OmbrixAPIEndpointDevelopment,
} OmbrixAPIEndpoint;

/// The one instance; borrowed, never released.
OmbrixServerAPI* ombrix_ServerAPI_sharedInstance(void);

/// Switches the environment, and releases the token and the sessions of the old one. An environment
/// out of range stops the program at the next request.
void ombrix_ServerAPI_changeTo_(OmbrixAPIEndpoint endpoint);
/// The environment in use.
OmbrixAPIEndpoint ombrix_ServerAPI_endPoint(const OmbrixServerAPI* self);

/// Uses other servers: base URLs that end in "/". False, without any change, when one of them is
/// not a URL.
bool ombrix_ServerAPI_setProduction_staging_development_(OmbrixServerAPI* self,
                                                         const char* production,
                                                         const char* staging,
                                                         const char* development);

/// The base URL of the environment; the caller owns the copy.
char* ombrix_ServerAPI_baseURL(const OmbrixServerAPI* self);
/// Its host, without port; the caller owns the copy.
char* ombrix_ServerAPI_baseHost(const OmbrixServerAPI* self);
/// The root of the versioned interface, "api/v1/" below the base URL; the caller owns the copy.
char* ombrix_ServerAPI_apiEndpoint(const OmbrixServerAPI* self);
/// The root of everything else, the base URL; the caller owns the copy.
char* ombrix_ServerAPI_endpoint(const OmbrixServerAPI* self);

/// How many bytes its caches take on disk.
int64_t ombrix_ServerAPI_cacheSize(OmbrixServerAPI* self);
/// Removes all answers from the session's cache and the process's shared one.
void ombrix_ServerAPI_clearCaches(OmbrixServerAPI* self);

/// Runs an operation, which may be released right after. Adding one twice stops the program.
void ombrix_ServerAPI_addOperation_(OmbrixServerAPI* self,
                                    OmbrixAPIHttpRequestOperation* operation);

/// Cancels all requests in flight; cancelled operations make no calls.
void ombrix_ServerAPI_cancelAllOperations(OmbrixServerAPI* self);
/// Cancels the request with an ID, which then makes no calls. Does nothing for an ID that no
/// request has, or for a text that is not an ID.
void ombrix_ServerAPI_cancelRequestWithID_(OmbrixServerAPI* self, const char* id);

/// Waits until no request is on the queue. Do not call it from a handler or callback.
void ombrix_ServerAPI_waitUntilAllOperationsAreFinished(OmbrixServerAPI* self);

/// Whether a request is on the queue, or tracked outside of it.
bool ombrix_ServerAPI_hasOperations(const OmbrixServerAPI* self);
/// Called when a request outside of this client begins.
void ombrix_ServerAPI_trackExternalHTTPRequest(OmbrixServerAPI* self);
/// Called when it ends; surplus ends are ignored.
void ombrix_ServerAPI_completeExternalHTTPRequest(OmbrixServerAPI* self);

/// The token of the signed-in user, a copy that the caller owns; NULL when nobody is signed in.
char* ombrix_ServerAPI_jwtToken(const OmbrixServerAPI* self);
/// Sets the token, which is copied; NULL signs out.
void ombrix_ServerAPI_setJwtToken_(OmbrixServerAPI* self, const char* token);

/// Called on the thread that causes the condition.
typedef void (*OmbrixServerAPIHandler)(void* context);

/// Whether the login is no longer valid; only `clearLoginError` ends this.
bool ombrix_ServerAPI_loginError(const OmbrixServerAPI* self);
/// Makes it so, and calls the handler if it was not.
void ombrix_ServerAPI_triggerLoginError(OmbrixServerAPI* self);
/// Ends it.
void ombrix_ServerAPI_clearLoginError(OmbrixServerAPI* self);
/// Called each time that the login becomes invalid; NULL for none.
void ombrix_ServerAPI_setForceLogoutHandler_context_(OmbrixServerAPI* self,
                                                     OmbrixServerAPIHandler handler, void* context);

/// Whether the server is in maintenance, by its last answer.
bool ombrix_ServerAPI_serverIsInMaintenanceMode(const OmbrixServerAPI* self);
/// Makes it so, and calls the handler if it was not.
void ombrix_ServerAPI_triggerMaintenanceMode(OmbrixServerAPI* self);
/// Ends it.
void ombrix_ServerAPI_clearMaintenanceMode(OmbrixServerAPI* self);
/// Called each time that maintenance begins; NULL for none.
void ombrix_ServerAPI_setMaintenanceHandler_context_(OmbrixServerAPI* self,
                                                     OmbrixServerAPIHandler handler, void* context);

/// Whether the network can be reached, or could be after something is switched on.
bool ombrix_ServerAPI_isReachable(const OmbrixServerAPI* self);
/// Whether the network is constrained (Low Data Mode).
bool ombrix_ServerAPI_isLimited(const OmbrixServerAPI* self);
/// Whether the network is metered.
bool ombrix_ServerAPI_isExpensive(const OmbrixServerAPI* self);

/// Calls the observer on every change of "hasOperations", "isReachable", "isLimited",
/// "isExpensive", "loginError" or "serverIsInMaintenanceMode"; the caller owns the result. NULL for
/// an observer that is NULL.
OmbrixObservation* ombrix_ServerAPI_addObserver_forKeyPath_context_(OmbrixServerAPI* self,
                                                                    OmbrixObserver observer,
                                                                    const char* keyPath,
                                                                    void* context);

/// The outcome of a request: the status, or the code of `ombrix_Error_httpStatus`, with the body of
/// a success, which is not NULL, or with the error of a failure, which has the details. Body and
/// error are borrowed for the call. Called on the client's threads, on several at once.
typedef void (*OmbrixServerAPICompletion)(bool success, int code, const uint8_t* body,
                                          size_t length, const OmbrixError* error, void* context);

/// Sends a request and calls the completion once unless it is cancelled; returns the ID for
/// cancelling.
///
/// @param url An absolute URL, or a path below the base URL.
/// @param method As in "GET"; another text fails with an error.
/// @param disableCache Does nothing.
/// @param payload The body, sent as it is; `bytes` NULL for none.
char* ombrix_ServerAPI_requestWithUrl_method_disableCache_payload_completion_context_(
    OmbrixServerAPI* self, const char* url, const char* method, bool disableCache,
    OmbrixPayload payload, OmbrixServerAPICompletion completion, void* context);

/// The formatter of local times in requests and answers, "yyyy-MM-dd'T'HH:mm:ss" in the system's
/// time zone at first; the caller owns the handle.
OmbrixDateFormatter* ombrix_ServerAPI_localTimezoneFormatter(void);

/// Sets another formatter, which the caller may release right after; NULL restores the first one.
void ombrix_ServerAPI_setLocalTimezoneFormatter_(const OmbrixDateFormatter* formatter);

/// The sentence to show to the user, in the user's language; a generic one for NULL and for errors
/// that no request led to. The caller owns the copy.
char* ombrix_ServerAPI_errorMessageForError_(const OmbrixError* error);

#ifdef __cplusplus
}
#endif

#endif

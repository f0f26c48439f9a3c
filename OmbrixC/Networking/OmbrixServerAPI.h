#ifndef OMBRIXC_NETWORKING_OMBRIX_SERVER_API_H
#define OMBRIXC_NETWORKING_OMBRIX_SERVER_API_H

#include <stdbool.h>

#include "OmbrixC/Networking/OmbrixAPIHttpRequestOperation.h"
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

/// Switches the environment.
void ombrix_ServerAPI_changeTo_(OmbrixAPIEndpoint endpoint);
OmbrixAPIEndpoint ombrix_ServerAPI_endPoint(const OmbrixServerAPI* self);

/// Uses other servers: base URLs that end in "/". False, and nothing changes, when one is not a
/// URL.
bool ombrix_ServerAPI_setProduction_staging_development_(OmbrixServerAPI* self,
                                                         const char* production,
                                                         const char* staging,
                                                         const char* development);

char* ombrix_ServerAPI_baseURL(const OmbrixServerAPI* self);
char* ombrix_ServerAPI_baseHost(const OmbrixServerAPI* self);
char* ombrix_ServerAPI_apiEndpoint(const OmbrixServerAPI* self);
char* ombrix_ServerAPI_endpoint(const OmbrixServerAPI* self);

/// Bytes on disk.
int64_t ombrix_ServerAPI_cacheSize(OmbrixServerAPI* self);
void ombrix_ServerAPI_clearCaches(OmbrixServerAPI* self);

/// Runs an operation, which may be released right after. Adding one twice stops the program.
void ombrix_ServerAPI_addOperation_(OmbrixServerAPI* self,
                                    OmbrixAPIHttpRequestOperation* operation);

/// Cancelled operations call nobody.
void ombrix_ServerAPI_cancelAllOperations(OmbrixServerAPI* self);
void ombrix_ServerAPI_cancelRequestWithID_(OmbrixServerAPI* self, const char* id);

/// Not from a handler or callback.
void ombrix_ServerAPI_waitUntilAllOperationsAreFinished(OmbrixServerAPI* self);

bool ombrix_ServerAPI_hasOperations(const OmbrixServerAPI* self);
void ombrix_ServerAPI_trackExternalHTTPRequest(OmbrixServerAPI* self);
void ombrix_ServerAPI_completeExternalHTTPRequest(OmbrixServerAPI* self);

/// NULL when nobody is signed in, in and out.
char* ombrix_ServerAPI_jwtToken(const OmbrixServerAPI* self);
void ombrix_ServerAPI_setJwtToken_(OmbrixServerAPI* self, const char* token);

/// Called on the thread that brings the condition about.
typedef void (*OmbrixServerAPIHandler)(void* context);

bool ombrix_ServerAPI_loginError(const OmbrixServerAPI* self);
void ombrix_ServerAPI_triggerLoginError(OmbrixServerAPI* self);
void ombrix_ServerAPI_clearLoginError(OmbrixServerAPI* self);
/// Called each time that the login becomes invalid; NULL for none.
void ombrix_ServerAPI_setForceLogoutHandler_context_(OmbrixServerAPI* self,
                                                     OmbrixServerAPIHandler handler, void* context);

bool ombrix_ServerAPI_serverIsInMaintenanceMode(const OmbrixServerAPI* self);
void ombrix_ServerAPI_triggerMaintenanceMode(OmbrixServerAPI* self);
void ombrix_ServerAPI_clearMaintenanceMode(OmbrixServerAPI* self);
/// Called each time that maintenance begins; NULL for none.
void ombrix_ServerAPI_setMaintenanceHandler_context_(OmbrixServerAPI* self,
                                                     OmbrixServerAPIHandler handler, void* context);

bool ombrix_ServerAPI_isReachable(const OmbrixServerAPI* self);
bool ombrix_ServerAPI_isLimited(const OmbrixServerAPI* self);
bool ombrix_ServerAPI_isExpensive(const OmbrixServerAPI* self);

/// Calls the observer on every change of "hasOperations", "isReachable", "isLimited",
/// "isExpensive", "loginError" or "serverIsInMaintenanceMode"; the caller owns the result. NULL for
/// an observer that is NULL.
OmbrixObservation* ombrix_ServerAPI_addObserver_forKeyPath_context_(OmbrixServerAPI* self,
                                                                    OmbrixObserver observer,
                                                                    const char* keyPath,
                                                                    void* context);

/// The outcome of a request: status and body, or an error; both borrowed for the call. The body is
/// not NULL after a success.
typedef void (*OmbrixServerAPICompletion)(bool success, int code, const uint8_t* body,
                                          size_t length, const OmbrixError* error, void* context);

/// Sends a request and calls the completion once, unless it is cancelled; gives the ID to cancel
/// it by.
///
/// @param url An absolute URL, or a path below the base URL.
/// @param method As in "GET"; another text fails with an error.
/// @param disableCache Does nothing.
/// @param payload The body, sent as it is; `bytes` NULL for none.
char* ombrix_ServerAPI_requestWithUrl_method_disableCache_payload_completion_context_(
    OmbrixServerAPI* self, const char* url, const char* method, bool disableCache,
    OmbrixPayload payload, OmbrixServerAPICompletion completion, void* context);

/// The sentence to show to the user; the generic one for NULL.
char* ombrix_ServerAPI_errorMessageForError_(const OmbrixError* error);

#ifdef __cplusplus
}
#endif

#endif

#include "OmbrixC/Networking/OmbrixServerAPI.h"

#include <utility>

#include "OmbrixC/Detail/DateFormatter.hpp"
#include "OmbrixC/Detail/HTTPErrors.hpp"
#include "OmbrixC/Detail/Observation.hpp"
#include "OmbrixC/Networking/Detail/Requests.hpp"

namespace {

using Client = ombrix::OmbrixServerAPI;
using ombrix::APIEndpoint;
using ombrix::HTTPAnswer;
using ombrix::HTTPError;
using ombrix::c::catching;
using ombrix::c::copied;
using ombrix::c::textFrom;
using ombrix::platform::URL;

static_assert(static_cast<int>(APIEndpoint::production) == OmbrixAPIEndpointProduction &&
              static_cast<int>(APIEndpoint::staging) == OmbrixAPIEndpointStaging &&
              static_cast<int>(APIEndpoint::development) == OmbrixAPIEndpointDevelopment);

Client& from(OmbrixServerAPI* self) { return *reinterpret_cast<Client*>(self); }
const Client& from(const OmbrixServerAPI* self) { return *reinterpret_cast<const Client*>(self); }

char* text(std::string_view value) { return copied(value); }

std::function<void()> handlerFrom(OmbrixServerAPIHandler handler, void* context) {
  if (handler == nullptr) return nullptr;
  return [handler, context] { handler(context); };
}

}  // namespace

OmbrixServerAPI* ombrix_ServerAPI_sharedInstance() {
  return catching(nullptr, [] {
    ombrix::c::noteClient();
    return reinterpret_cast<OmbrixServerAPI*>(&Client::sharedInstance());
  });
}

void ombrix_ServerAPI_changeTo_(OmbrixAPIEndpoint endpoint) {
  catching(nullptr, [&] { Client::change(static_cast<APIEndpoint>(endpoint)); });
}

OmbrixAPIEndpoint ombrix_ServerAPI_endPoint(const OmbrixServerAPI* self) {
  return static_cast<OmbrixAPIEndpoint>(from(self).endPoint());
}

bool ombrix_ServerAPI_setProduction_staging_development_(OmbrixServerAPI* self,
                                                         const char* production,
                                                         const char* staging,
                                                         const char* development) {
  return catching(nullptr, [&] {
    const auto first = URL::parse(textFrom(production)), second = URL::parse(textFrom(staging)),
               third = URL::parse(textFrom(development));
    if (!first || !second || !third) return false;
    from(self).setConfiguration({*first, *second, *third});
    return true;
  });
}

char* ombrix_ServerAPI_baseURL(const OmbrixServerAPI* self) {
  return catching(nullptr, [&] { return text(from(self).baseURL()); });
}
char* ombrix_ServerAPI_baseHost(const OmbrixServerAPI* self) {
  return catching(nullptr, [&] { return text(from(self).baseHost()); });
}
char* ombrix_ServerAPI_apiEndpoint(const OmbrixServerAPI* self) {
  return catching(nullptr, [&] { return text(from(self).apiEndpoint().absoluteString()); });
}
char* ombrix_ServerAPI_endpoint(const OmbrixServerAPI* self) {
  return catching(nullptr, [&] { return text(from(self).endpoint().absoluteString()); });
}

int64_t ombrix_ServerAPI_cacheSize(OmbrixServerAPI* self) {
  return catching(nullptr, [&] { return from(self).cacheSize(); });
}
void ombrix_ServerAPI_clearCaches(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).clearCaches(); });
}

void ombrix_ServerAPI_addOperation_(OmbrixServerAPI* self,
                                    OmbrixAPIHttpRequestOperation* operation) {
  catching(nullptr, [&] { from(self).addOperation(operation->operation); });
}
void ombrix_ServerAPI_cancelAllOperations(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).cancelAllOperations(); });
}
void ombrix_ServerAPI_cancelRequestWithID_(OmbrixServerAPI* self, const char* id) {
  catching(nullptr, [&] {
    const auto uuid = ombrix::platform::UUID::parse(textFrom(id));
    if (uuid) from(self).cancelRequestWithID(*uuid);
  });
}
void ombrix_ServerAPI_waitUntilAllOperationsAreFinished(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).waitUntilAllOperationsAreFinished(); });
}

bool ombrix_ServerAPI_hasOperations(const OmbrixServerAPI* self) {
  return from(self).hasOperations();
}
void ombrix_ServerAPI_trackExternalHTTPRequest(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).trackExternalHTTPRequest(); });
}
void ombrix_ServerAPI_completeExternalHTTPRequest(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).completeExternalHTTPRequest(); });
}

char* ombrix_ServerAPI_jwtToken(const OmbrixServerAPI* self) {
  return catching(nullptr, [&] { return copied(from(self).jwtToken()); });
}
void ombrix_ServerAPI_setJwtToken_(OmbrixServerAPI* self, const char* token) {
  catching(nullptr, [&] {
    from(self).setJwtToken(token == nullptr ? std::nullopt : std::optional<std::string>(token));
  });
}

bool ombrix_ServerAPI_loginError(const OmbrixServerAPI* self) { return from(self).loginError(); }
void ombrix_ServerAPI_triggerLoginError(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).triggerLoginError(); });
}
void ombrix_ServerAPI_clearLoginError(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).clearLoginError(); });
}
void ombrix_ServerAPI_setForceLogoutHandler_context_(OmbrixServerAPI* self,
                                                     OmbrixServerAPIHandler handler,
                                                     void* context) {
  catching(nullptr, [&] { from(self).setForceLogoutHandler(handlerFrom(handler, context)); });
}

bool ombrix_ServerAPI_serverIsInMaintenanceMode(const OmbrixServerAPI* self) {
  return from(self).serverIsInMaintenanceMode();
}
void ombrix_ServerAPI_triggerMaintenanceMode(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).triggerMaintenanceMode(); });
}
void ombrix_ServerAPI_clearMaintenanceMode(OmbrixServerAPI* self) {
  catching(nullptr, [&] { from(self).clearMaintenanceMode(); });
}
void ombrix_ServerAPI_setMaintenanceHandler_context_(OmbrixServerAPI* self,
                                                     OmbrixServerAPIHandler handler,
                                                     void* context) {
  catching(nullptr, [&] { from(self).setMaintenanceHandler(handlerFrom(handler, context)); });
}

bool ombrix_ServerAPI_isReachable(const OmbrixServerAPI* self) { return from(self).isReachable(); }
bool ombrix_ServerAPI_isLimited(const OmbrixServerAPI* self) { return from(self).isLimited(); }
bool ombrix_ServerAPI_isExpensive(const OmbrixServerAPI* self) { return from(self).isExpensive(); }

OmbrixObservation* ombrix_ServerAPI_addObserver_forKeyPath_context_(OmbrixServerAPI* self,
                                                                    OmbrixObserver observer,
                                                                    const char* keyPath,
                                                                    void* context) {
  return ombrix::c::observe(from(self), keyPath, observer, context);
}

char* ombrix_ServerAPI_requestWithUrl_method_disableCache_payload_completion_context_(
    OmbrixServerAPI* self, const char* url, const char* method, bool disableCache,
    OmbrixPayload payload, OmbrixServerAPICompletion completion, void* context) {
  return catching(nullptr, [&] {
    Client& client = from(self);
    const auto verb = ombrix::c::methodFrom(method);
    const auto publisher =
        verb ? client.publisher(textFrom(url), *verb, disableCache, ombrix::c::from(payload))
             : Client::APIPublisher<HTTPAnswer>::fail(HTTPError::badRequestError())
                   .receiveOn(Client::dispatchQueue());
    const auto id = client.objcWrapper<HTTPAnswer>(
        publisher, [completion, context](bool success, const std::optional<HTTPAnswer>& answer,
                                         const std::optional<HTTPError>& error) {
          if (completion == nullptr) return;
          if (error) {
            const OmbrixError given{error->what(), std::make_exception_ptr(*error)};
            return completion(success, ombrix::c::statusOf(*error), nullptr, 0, &given, context);
          }
          completion(success, answer->code, ombrix::c::bytesFrom(answer->data), answer->data.size(),
                     nullptr, context);
        });
    return text(id.uuidString());
  });
}

OmbrixDateFormatter* ombrix_ServerAPI_localTimezoneFormatter() {
  return catching(nullptr,
                  [] { return new OmbrixDateFormatter{Client::localTimezoneFormatter()}; });
}
void ombrix_ServerAPI_setLocalTimezoneFormatter_(const OmbrixDateFormatter* formatter) {
  Client::setLocalTimezoneFormatter(formatter == nullptr ? nullptr : formatter->formatter);
}

char* ombrix_ServerAPI_errorMessageForError_(const OmbrixError* error) {
  return catching(nullptr, [&] {
    return text(Client::errorMessageForError(error ? error->exception : std::exception_ptr()));
  });
}

#include "OmbrixC/Networking/OmbrixAPIHttpRequestOperation.h"

#include <utility>

#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/Networking/Detail/Requests.hpp"

using ombrix::OmbrixServerAPI;
using ombrix::c::catching;
using ombrix::c::textFrom;

OmbrixAPIHttpRequestOperation* ombrix_APIHttpRequestOperation_initWithUrl_method_headers_callback_(
    const char* url, const char* method, const char* const* headers, size_t headerCount,
    OmbrixRequestCallback callback, void* context) {
  return catching(nullptr, [&]() -> OmbrixAPIHttpRequestOperation* {
    ombrix::c::noteClient();
    auto& client = OmbrixServerAPI::sharedInstance();
    const auto target = ombrix::platform::URL::parse(textFrom(url), client.endpoint());
    const auto verb = ombrix::c::methodFrom(method);
    if (!target || !verb) return nullptr;
    ombrix::platform::HTTPHeaders fields;
    for (size_t i = 0; i + 1 < headerCount; i += 2) {
      fields.set(textFrom(headers[i]), std::string(textFrom(headers[i + 1])));
    }
    ombrix::HttpRequestOperation::Callback forward;
    if (callback != nullptr) {
      forward = [callback, context](bool success, int code, const auto*, const auto* data) {
        callback(success, code, data ? ombrix::c::bytesFrom(*data) : nullptr,
                 data ? data->size() : 0, context);
      };
    }
    return new OmbrixAPIHttpRequestOperation{
        std::make_shared<ombrix::OmbrixAPIHttpRequestOperation>(
            *target, *verb, std::move(fields), std::move(forward), client.session())};
  });
}

void ombrix_APIHttpRequestOperation_release(OmbrixAPIHttpRequestOperation* self) { delete self; }

char* ombrix_APIHttpRequestOperation_taskID(const OmbrixAPIHttpRequestOperation* self) {
  return catching(nullptr, [&] {
    return ombrix::c::copied(std::string_view(self->operation->taskID().uuidString()));
  });
}

OmbrixOperationState ombrix_APIHttpRequestOperation_state(
    const OmbrixAPIHttpRequestOperation* self) {
  return static_cast<OmbrixOperationState>(self->operation->state());
}

bool ombrix_APIHttpRequestOperation_isCancelled(const OmbrixAPIHttpRequestOperation* self) {
  return self->operation->isCancelled();
}

void ombrix_APIHttpRequestOperation_cancel(OmbrixAPIHttpRequestOperation* self) {
  catching(nullptr, [&] { self->operation->cancel(); });
}

void ombrix_APIHttpRequestOperation_setPayload_(OmbrixAPIHttpRequestOperation* self,
                                                OmbrixPayload payload) {
  catching(nullptr, [&] { self->operation->setPayload(ombrix::c::from(payload)); });
}

bool ombrix_APIHttpRequestOperation_safeForLowData(const OmbrixAPIHttpRequestOperation* self) {
  return self->operation->safeForLowData();
}
void ombrix_APIHttpRequestOperation_setSafeForLowData_(OmbrixAPIHttpRequestOperation* self,
                                                       bool isSafe) {
  self->operation->setSafeForLowData(isSafe);
}

bool ombrix_APIHttpRequestOperation_usesAuth(const OmbrixAPIHttpRequestOperation* self) {
  return self->operation->usesAuth();
}
void ombrix_APIHttpRequestOperation_setUsesAuth_(OmbrixAPIHttpRequestOperation* self,
                                                 bool usesAuth) {
  self->operation->setUsesAuth(usesAuth);
}

bool ombrix_APIHttpRequestOperation_disableCashe(const OmbrixAPIHttpRequestOperation* self) {
  return self->operation->disableCashe();
}
void ombrix_APIHttpRequestOperation_setDisableCashe_(OmbrixAPIHttpRequestOperation* self,
                                                     bool isDisabled) {
  self->operation->setDisableCashe(isDisabled);
}

bool ombrix_APIHttpRequestOperation_cacheOnly(const OmbrixAPIHttpRequestOperation* self) {
  return self->operation->cacheOnly();
}
void ombrix_APIHttpRequestOperation_setCacheOnly_(OmbrixAPIHttpRequestOperation* self,
                                                  bool cacheOnly) {
  self->operation->setCacheOnly(cacheOnly);
}

int ombrix_APIHttpRequestOperation_attempt(const OmbrixAPIHttpRequestOperation* self) {
  return self->operation->attempt();
}
void ombrix_APIHttpRequestOperation_setAttempt_(OmbrixAPIHttpRequestOperation* self, int attempt) {
  self->operation->setAttempt(attempt);
}

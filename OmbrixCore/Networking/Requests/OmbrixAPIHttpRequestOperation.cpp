#include "OmbrixCore/Networking/Requests/OmbrixAPIHttpRequestOperation.hpp"

#include <algorithm>
#include <charconv>
#include <typeinfo>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Locks/LockGuard.hpp"
#include "OmbrixPlatform/Network/URLOrigin.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {
namespace {

constexpr LogTag kHandleTag{"OmbrixCore/Networking/OmbrixServerAPI",
                            "handle(response:error:json:data:)"};
constexpr std::string_view kBearer = "Bearer ";
constexpr std::size_t kNamedLanguages = 5;
constexpr int kBadRequest = 400;
constexpr int kUnauthorized = 401;
constexpr int kServiceUnavailable = 503;

// The shortest decimal that reads back as the same number.
void appendWeight(std::string& text, std::size_t entries) {
  char digits[32];
  const double weight = 1.0 - 0.1 * static_cast<double>(entries);
  const auto end = std::to_chars(std::begin(digits), std::end(digits), weight).ptr;
  text.append(";q=").append(digits, end);
}

/// That of the languages of the moment; made anew when they have changed.
std::string acceptLanguageField() {
  struct Last {
    platform::FutexLock lock;
    std::vector<std::string> languages OMBRIX_GUARDED_BY(lock);
    std::string field OMBRIX_GUARDED_BY(lock);
  };
  static auto& last = *new Last;
  auto languages = platform::services().locale.get().preferredLanguages();
  const platform::LockGuard lock(last.lock);
  if (languages != last.languages) {
    last.field = ombrix::acceptLanguageField(languages);
    last.languages = std::move(languages);
  }
  return last.field;
}

std::string withoutBearer(std::string_view field) {
  std::string token(field);
  for (auto at = token.find(kBearer); at != std::string::npos; at = token.find(kBearer, at)) {
    token.erase(at, kBearer.size());
  }
  return token;
}

}  // namespace

std::string acceptLanguageField(std::span<const std::string> languages) {
  std::string field;
  if (languages.empty()) return field;
  const std::size_t count = std::min(languages.size(), kNamedLanguages);
  for (std::size_t i = 0; i < count; ++i) {
    field += languages[i];
    if (i > 0) appendWeight(field, i);
    field += ", ";
  }
  field += '*';
  appendWeight(field, count);
  return field;
}

std::uint64_t OmbrixAPIHttpRequestOperation::currentEnvironment() {
  return OmbrixServerAPI::sharedInstance().environment();
}

std::optional<platform::URLRequest> OmbrixAPIHttpRequestOperation::buildRequest() {
  auto request = HttpRequestOperation::buildRequest();
  if (!request) return std::nullopt;
  sentToken_ = OmbrixServerAPI::sharedInstance().jwtToken(environment_);
  if (sentToken_) request->headers.set("Authorization", std::string(kBearer) + *sentToken_);
  auto languages = acceptLanguageField();
  if (!languages.empty()) request->headers.set("Accept-Language", std::move(languages));
  request->headers.set("Accept", "application/json");
  // Each answer states token, login and maintenance.
  request->wantsEachAnswer = true;
  using enum platform::URLRequest::CachePolicy;
  if (disableCashe_) {
    request->cachePolicy = reloadIgnoringLocalCacheData;
  } else if (cacheOnly_) {
    request->cachePolicy = returnCacheDataDontLoad;
  }
  return request;
}

void OmbrixAPIHttpRequestOperation::handle(const platform::HTTPURLResponse& response,
                                           const platform::Error* error,
                                           std::optional<platform::JSON> json,
                                           std::optional<platform::Data> data) {
  if (response.url() != url() && !platform::haveSameOrigin(response.url(), url())) {
    return HttpRequestOperation::handle(response, error, std::move(json), std::move(data));
  }
  const int status = response.statusCode();
  const bool success = isSuccessStatus(status);
  ServiceConditions conditions{.token = std::nullopt,
                               .isInMaintenance = status == kServiceUnavailable};
  // Kept: failed answers rotate the token as well. The old one may not be valid any more.
  const auto authorization = response.valueForHTTPHeaderField("Authorization");
  if (authorization && !authorization->empty()) conditions.token = withoutBearer(*authorization);
  // Kept: 400 means an invalid login as well as 401. Sorted with the other failures it would no
  // longer reach the handler that asks the user to log in again.
  conditions.isLoginInvalid = status == kUnauthorized || status == kBadRequest;
  hasDeferredLoginError_ = defersLoginError_ && sentToken_ && status == kUnauthorized;
  if (!success && !conditions.isLoginInvalid && !conditions.isInMaintenance) {
    logWarning(kHandleTag, "Web: Non-OK response from server " + std::to_string(status));
  }
  if (hasDeferredLoginError_) conditions.isLoginInvalid = false;
  OmbrixServerAPI::sharedInstance().take(std::move(conditions), environment_);
  endTaskAndCallbackWithSuccess(success, status, std::move(json), std::move(data));
}

bool OmbrixAPIHttpRequestOperation::runsOwnCodeOnly() const {
  return typeid(*this) == typeid(OmbrixAPIHttpRequestOperation);
}

std::shared_ptr<OmbrixAPIHttpRequestOperation> OmbrixAPIHttpRequestOperation::nextAttempt() const {
  auto next = std::make_shared<OmbrixAPIHttpRequestOperation>(url(), method(), headers(), nullptr,
                                                              session());
  next->environment_ = environment_;
  next->usesAuth_ = usesAuth_;
  next->disableCashe_ = disableCashe_;
  next->cacheOnly_ = cacheOnly_;
  next->isLongTransfer_ = isLongTransfer_;
  next->attempt_ = attempt_ + 1;
  return next->repeat(*this) ? next : nullptr;
}

void OmbrixAPIHttpRequestOperation::enqueueForPublisher() {
  if (wasPublished_.exchange(true)) {
    platform::fatalError("the publisher of " + name() +
                         " was subscribed to again: make a new publisher for each attempt");
  }
  OmbrixServerAPI::sharedInstance().addOperation(
      std::static_pointer_cast<OmbrixAPIHttpRequestOperation>(shared_from_this()));
}

}  // namespace ombrix

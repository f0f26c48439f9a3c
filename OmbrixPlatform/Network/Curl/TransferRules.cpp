#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/Redirect.hpp"

namespace ombrix::platform::detail {
namespace {

using Code = URLError::Code;

constexpr int kMaximumRedirects = 20;

std::shared_ptr<const URLError> errorOf(Code code, const std::string& sentence) {
  return std::make_shared<const URLError>(code, sentence);
}

}  // namespace

std::shared_ptr<const URLRequest> completed(std::shared_ptr<const URLRequest> request,
                                            const URLSessionConfiguration& configuration,
                                            const URL& firstURL) {
  using enum URLRequest::CachePolicy;
  const bool takesPolicy = request->cachePolicy == useProtocolCachePolicy &&
                           configuration.requestCachePolicy != useProtocolCachePolicy;
  if (configuration.httpAdditionalHeaders.empty() && !takesPolicy) return request;
  auto whole = std::make_shared<URLRequest>(*request);
  const bool isElsewhere = !haveSameOrigin(request->url, firstURL);
  for (const auto& [name, value] : configuration.httpAdditionalHeaders) {
    if (whole->headers.contains(name) || (isElsewhere && isForOneOrigin(name))) continue;
    whole->headers.set(name, value);
  }
  if (takesPolicy) whole->cachePolicy = configuration.requestCachePolicy;
  return whole;
}

std::shared_ptr<const URLError> refusal(const URLRequest& request,
                                        const std::optional<URLOrigin>& origin) {
  if (!origin) {
    return errorOf(Code::unsupportedURL, "the request's URL is neither http nor https");
  }
  if (!HTTPHeaders::isName(request.httpMethod)) {
    return errorOf(Code::badURL, "the request's method is not a valid token");
  }
  for (const auto& [name, value] : request.headers) {
    if (HTTPHeaders::isName(name) && HTTPHeaders::isValue(value)) continue;
    return errorOf(Code::badURL, "a header field cannot be sent: " + name);
  }
  return nullptr;
}

bool isIdempotent(std::string_view method) noexcept {
  constexpr std::array<std::string_view, 6> kMethods{"GET",    "HEAD",    "PUT",
                                                     "DELETE", "OPTIONS", "TRACE"};
  return std::ranges::find(kMethods, method) != kMethods.end();
}

bool isLoopback(const std::string& host) noexcept {
  in_addr address{};
  // A name may well begin with these digits.
  return host == "localhost" || host == "::1" ||
         (host.starts_with("127.") && ::inet_pton(AF_INET, host.c_str(), &address) == 1);
}

AfterAnswer afterAnswer(const URLRequest& request, const HTTPURLResponse& response, int redirects,
                        bool isUnconfirmed) {
  using enum AfterAnswer::Step;
  if (isUnconfirmed) return {.step = loadAfresh};
  if (!isRedirect(response)) return {.step = conclude};
  if (redirects >= kMaximumRedirects) {
    return {.step = fail,
            .error = errorOf(Code::httpTooManyRedirects, "the server redirects without end")};
  }
  auto next = redirected(request, response);
  if (!next) {
    return {.step = fail,
            .error = errorOf(Code::redirectToNonExistentLocation,
                             "the server redirects to an invalid URL")};
  }
  if (!mayFollow(request, *next)) return {.step = conclude};
  return {.step = follow, .next = std::move(next)};
}

AfterFailure afterFailure(const FailedExchange& exchange) noexcept {
  using enum AfterFailure;
  if (exchange.hasHeader) return fail;
  if (exchange.isHTTP1Required) return sendByHTTP1;
  if (exchange.connectionDiedBefore) {
    return exchange.isIdempotent && !exchange.isResend ? sendAgain : fail;
  }
  if (exchange.wasSent) return fail;
  if (exchange.foundSurplus) return tryOther;
  if (exchange.isUndecided) return askAboutTrust;
  if (exchange.isMissingConnectivity && exchange.waitsForConnectivity) return awaitConnectivity;
  return fail;
}

}  // namespace ombrix::platform::detail

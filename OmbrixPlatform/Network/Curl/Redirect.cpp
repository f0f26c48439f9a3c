#include "OmbrixPlatform/Network/Curl/Detail/Redirect.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace ombrix::platform::detail {
namespace {

/// The text with those characters percent-encoded that servers write into "Location" although a URL
/// must not contain them.
std::string encodedWhereNeeded(std::string_view text) {
  constexpr std::string_view kNeverInURLs = "\"<>\\^`{|}";
  std::string encoded;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte <= ' ' || byte >= 0x7F || kNeverInURLs.contains(character)) {
      encoded.append({'%', kHexDigits[byte >> 4], kHexDigits[byte & 0xF]});
    } else {
      encoded.push_back(character);
    }
  }
  return encoded;
}

constexpr std::array<const char*, 3> kForOneOrigin{"Authorization", "Cookie",
                                                   "Proxy-Authorization"};

}  // namespace

bool isRedirect(const HTTPURLResponse& response) noexcept {
  switch (response.statusCode()) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308:
      return response.headers().contains("Location");
    default:
      return false;
  }
}

bool isForOneOrigin(std::string_view headerName) noexcept {
  return std::ranges::any_of(kForOneOrigin,
                             [&](const char* name) { return headerNamesEqual(headerName, name); });
}

bool mayFollow(const URLRequest& request, const URLRequest& next) {
  const auto from = URLOrigin::of(request.url);
  const auto to = URLOrigin::of(next.url);
  const bool isDowngrade = from && from->isSecure && !(to && to->isSecure);
  const bool hasBody = next.httpBodySource || (next.httpBody && !next.httpBody->empty());
  return !(isDowngrade && hasBody);
}

std::shared_ptr<const HTTPURLResponse> handedOver(std::shared_ptr<const HTTPURLResponse> response,
                                                  const URL& original) {
  if (!response->headers().contains("Authorization")) return response;
  if (haveSameOrigin(response->url(), original)) return response;
  HTTPHeaders headers = response->headers();
  headers.remove("Authorization");
  return std::make_shared<const HTTPURLResponse>(response->url(), response->statusCode(),
                                                 std::move(headers), response->httpVersion());
}

std::shared_ptr<const HTTPURLResponse> withTokenOf(
    const HTTPURLResponse& passedOver, std::shared_ptr<const HTTPURLResponse> response) {
  const auto token = passedOver.valueForHTTPHeaderField("Authorization");
  if (!token || response->headers().contains("Authorization")) return response;
  if (!haveSameOrigin(passedOver.url(), response->url())) return response;
  HTTPHeaders headers = response->headers();
  headers.set("Authorization", std::string(*token));
  return std::make_shared<const HTTPURLResponse>(response->url(), response->statusCode(),
                                                 std::move(headers), response->httpVersion());
}

std::optional<URLRequest> redirected(const URLRequest& request, const HTTPURLResponse& response) {
  const auto location = response.valueForHTTPHeaderField("Location");
  if (!location || location->empty()) return std::nullopt;
  auto url = URL::parse(encodedWhereNeeded(*location), request.url);
  if (!url) return std::nullopt;

  const bool isSameOrigin = haveSameOrigin(*url, request.url);
  if (!isSameOrigin || url->userInfo() != request.url.userInfo()) url = withoutUserInfo(*url);

  URLRequest next = request;
  next.url = *std::move(url);
  const int status = response.statusCode();
  const bool becomesGet = (status == 303 && request.httpMethod != "HEAD") ||
                          ((status == 301 || status == 302) && request.httpMethod == "POST");
  if (becomesGet) {
    next.httpMethod = "GET";
    next.httpBody.reset();
    next.httpBodySource.reset();
    for (const char* name : {"Content-Type", "Content-Length", "Content-Encoding",
                             "Content-Language", "Content-Location", "Expect"}) {
      next.headers.remove(name);
    }
  }
  if (!isSameOrigin) {
    for (const char* name : kForOneOrigin) next.headers.remove(name);
  }
  return next;
}

}  // namespace ombrix::platform::detail

#include "OmbrixPlatform/Network/Detail/Redirect.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Network/Detail/HTTPOrigin.hpp"

namespace ombrix::platform::detail {
namespace {

/// The text with what servers write into "Location" though a URL may not hold it percent-encoded.
std::string encodedWhereNeeded(std::string_view text) {
  constexpr std::string_view kNeverInURLs = "\"<>\\^`{|}";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte <= ' ' || byte >= 0x7F || kNeverInURLs.contains(character)) {
      encoded.append({'%', kDigits[byte >> 4], kDigits[byte & 0xF]});
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

bool haveSameOrigin(const URL& a, const URL& b) { return HTTPOrigin::of(a) == HTTPOrigin::of(b); }

std::optional<URLRequest> redirected(const URLRequest& request, const HTTPURLResponse& response) {
  const auto location = response.valueForHTTPHeaderField("Location");
  if (!location || location->empty()) return std::nullopt;
  auto url = URL::parse(encodedWhereNeeded(*location), request.url);
  if (!url) return std::nullopt;

  URLRequest next = request;
  next.url = *std::move(url);
  const int status = response.statusCode();
  const bool becomesGet = (status == 303 && request.httpMethod != "HEAD") ||
                          ((status == 301 || status == 302) && request.httpMethod == "POST");
  if (becomesGet) {
    next.httpMethod = "GET";
    next.httpBody.reset();
    for (const char* name : {"Content-Type", "Content-Length", "Content-Encoding",
                             "Content-Language", "Content-Location", "Expect"}) {
      next.headers.remove(name);
    }
  }
  if (!haveSameOrigin(next.url, request.url)) {
    for (const char* name : kForOneOrigin) next.headers.remove(name);
  }
  return next;
}

}  // namespace ombrix::platform::detail

#include "OmbrixPlatform/Network/URLOrigin.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform {

std::optional<URLOrigin> URLOrigin::of(const URL& url) {
  constexpr std::uint16_t kPlainPort = 80;
  constexpr std::uint16_t kSecurePort = 443;
  const auto scheme = url.scheme();
  const bool isSecure = scheme && headerNamesEqual(*scheme, "https");
  if (!isSecure && !(scheme && headerNamesEqual(*scheme, "http"))) return std::nullopt;
  auto host = url.host();
  if (!host || host->empty()) return std::nullopt;
  std::ranges::transform(*host, host->begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
  });
  return URLOrigin{.host = *std::move(host),
                   .port = url.port().value_or(isSecure ? kSecurePort : kPlainPort),
                   .isSecure = isSecure};
}

bool haveSameOrigin(const URL& a, const URL& b) {
  const auto origin = URLOrigin::of(a);
  return origin && (a == b || origin == URLOrigin::of(b));
}

URL withoutUserInfo(const URL& url) {
  const auto user = url.userInfo();
  if (!user) return url;
  std::string text = url.absoluteString();
  text.erase(static_cast<std::size_t>(user->data() - url.absoluteString().data()),
             user->size() + 1);  // with the "@"
  return URL::parse(text).value_or(url);
}

}  // namespace ombrix::platform

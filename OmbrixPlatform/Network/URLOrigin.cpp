#include "OmbrixPlatform/Network/URLOrigin.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace ombrix::platform {
namespace {

std::string lowered(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
  });
  return result;
}

}  // namespace

std::optional<URLOrigin> URLOrigin::of(const URL& url) {
  constexpr std::uint16_t kPlainPort = 80;
  constexpr std::uint16_t kSecurePort = 443;
  std::string scheme = lowered(url.scheme().value_or(""));
  const bool isSecure = scheme == "https";
  if (!isSecure && scheme != "http") return std::nullopt;
  const auto host = url.host();
  if (!host || host->empty()) return std::nullopt;
  const std::uint16_t port = url.port().value_or(isSecure ? kSecurePort : kPlainPort);
  return URLOrigin{.scheme = std::move(scheme), .host = lowered(*host), .port = port};
}

bool haveSameOrigin(const URL& a, const URL& b) {
  const auto origin = URLOrigin::of(a);
  return origin && origin == URLOrigin::of(b);
}

}  // namespace ombrix::platform

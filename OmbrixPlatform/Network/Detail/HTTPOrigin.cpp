#include "OmbrixPlatform/Network/Detail/HTTPOrigin.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform::detail {

std::optional<HTTPOrigin> HTTPOrigin::of(const URL& url) {
  const auto scheme = url.scheme();
  const bool isSecure = scheme && headerNamesEqual(*scheme, "https");
  if (!isSecure && !(scheme && headerNamesEqual(*scheme, "http"))) return std::nullopt;
  auto host = url.host();
  if (!host || host->empty()) return std::nullopt;
  std::ranges::transform(*host, host->begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
  });
  const std::uint16_t standardPort = isSecure ? 443 : 80;
  return HTTPOrigin{*std::move(host), url.port().value_or(standardPort), isSecure};
}

}  // namespace ombrix::platform::detail

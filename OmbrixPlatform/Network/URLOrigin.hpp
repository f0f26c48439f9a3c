#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

/// The server that a URL leads to. URLs of one origin may share secrets (RFC 6454), queues and
/// connections.
struct URLOrigin {
  std::string host;        ///< in lower case
  std::uint16_t port = 0;  ///< the scheme's own where none is written
  bool isSecure = false;   ///< https

  /// Empty for a URL that is not http or https, or has no host.
  static std::optional<URLOrigin> of(const URL& url);

  friend bool operator==(const URLOrigin&, const URLOrigin&) = default;

  struct Hash {
    std::size_t operator()(const URLOrigin& origin) const noexcept {
      return std::hash<std::string>{}(origin.host) ^ (std::size_t{origin.port} << 1) ^
             std::size_t{origin.isSecure};
    }
  };
};

/// Whether both URLs have an origin, and the same one. Any thread.
[[nodiscard]] bool haveSameOrigin(const URL& a, const URL& b);

/// The URL without a name and password, as for texts that others may read. Any thread.
[[nodiscard]] URL withoutUserInfo(const URL& url);

}  // namespace ombrix::platform

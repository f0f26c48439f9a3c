#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

/// Which server a URL leads to: what may learn of one another's secrets (RFC 6454).
struct URLOrigin {
  std::string scheme;      ///< in lower case
  std::string host;        ///< in lower case
  std::uint16_t port = 0;  ///< the scheme's own where none is written

  /// Nothing for a URL that is not http or https, or has no host.
  static std::optional<URLOrigin> of(const URL& url);

  friend bool operator==(const URLOrigin&, const URLOrigin&) = default;
};

/// Whether both URLs have an origin, and the same one. Any thread.
[[nodiscard]] bool haveSameOrigin(const URL& a, const URL& b);

}  // namespace ombrix::platform

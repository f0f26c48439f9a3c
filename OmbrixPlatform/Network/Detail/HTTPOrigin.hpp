#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform::detail {

/// Where a request goes: what decides which queue it waits in and which connections it may use.
struct HTTPOrigin {
  std::string host;  ///< in lower case
  std::uint16_t port = 0;
  bool isSecure = false;

  /// Nothing for a URL that is not http or https, or has no host.
  static std::optional<HTTPOrigin> of(const URL& url);

  friend bool operator==(const HTTPOrigin&, const HTTPOrigin&) = default;

  struct Hash {
    std::size_t operator()(const HTTPOrigin& origin) const noexcept {
      return std::hash<std::string>{}(origin.host) ^ (std::size_t{origin.port} << 1) ^
             std::size_t{origin.isSecure};
    }
  };
};

}  // namespace ombrix::platform::detail

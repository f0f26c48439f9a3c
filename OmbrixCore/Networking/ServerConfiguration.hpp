#pragma once

#include "OmbrixCore/Networking/APIEndpoint.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix {

/// Which servers the client of the web service talks to: one base URL for each environment, an
/// HTTPS URL that ends in "/".
///
/// The host of `development` names a local test server: it is reached on the loopback address,
/// whatever the name service says, and its certificate may be self-signed.
struct ServerConfiguration {
  platform::URL production;
  platform::URL staging;
  platform::URL development;

  /// Hosts under reserved names, which a product replaces by its own.
  static ServerConfiguration defaults();

  [[nodiscard]] const platform::URL& baseURL(APIEndpoint endpoint) const;
};

}  // namespace ombrix

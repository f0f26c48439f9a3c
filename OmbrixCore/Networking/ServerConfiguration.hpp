#pragma once

#include <string>

#include "OmbrixCore/Networking/APIEndpoint.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Network/URLConnectionSettings.hpp"

namespace ombrix {

/// Which servers the client of the web service talks to: one base URL for each environment, an
/// HTTPS URL that ends in "/".
///
/// A host of `development` that ends in ".test", which no name service knows, is the local test
/// server: it is reached on the loopback address, and its certificate may be self-signed.
struct ServerConfiguration {
  platform::URL production;
  platform::URL staging;
  platform::URL development;

  /// Keys that the servers have to show, the client's certificates, a proxy; for all sessions.
  platform::URLConnectionSettings connections = {};

  /// Hosts under reserved names, which a product replaces by its own.
  static ServerConfiguration defaults();

  [[nodiscard]] const platform::URL& baseURL(APIEndpoint endpoint) const;

  /// The local test server's host in lower case; empty when there is none.
  [[nodiscard]] std::string testHost() const;
};

}  // namespace ombrix

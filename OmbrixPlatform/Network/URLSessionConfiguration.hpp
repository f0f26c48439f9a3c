#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Network/URLConnectionSettings.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"

namespace ombrix::platform {

class URLCache;

/// How a session behaves; it is copied when the session is made, and later changes have no effect
/// on the session.
///
/// Sessions speak HTTP/1.1 and, over TLS 1.2 or later where the server offers it, HTTP/2. Sessions
/// neither keep cookies nor send any on their own. A request that names no "User-Agent" gets that
/// of the main bundle.
struct URLSessionConfiguration {
  /// The defaults below, with the process's shared cache.
  static URLSessionConfiguration defaultConfiguration();

  /// The defaults without any cache.
  static URLSessionConfiguration ephemeral();

  /// For transfers that may take long: they wait for connectivity, and have a day each.
  ///
  /// Its transfers end with the process: nothing here goes on without it.
  /// @param identifier Names the session; for logs and debuggers only.
  static URLSessionConfiguration background(std::string identifier);

  std::string identifier;

  /// Seconds without any progress after which a transfer fails as `timedOut`.
  std::chrono::duration<double> timeoutIntervalForRequest = std::chrono::seconds(60);

  /// Seconds from `resume` to the last byte, waiting included, after which it fails as `timedOut`.
  std::chrono::duration<double> timeoutIntervalForResource = std::chrono::hours(7 * 24);

  /// Whether a transfer waits when there is no route, no such host or no connection to it for now;
  /// a refused connection fails at once all the same. It is tried again when the path changes, and
  /// from time to time. The resource time-out goes on while it waits, the request's does not.
  bool waitsForConnectivity = false;

  /// False: every request is refused while all paths are constrained.
  bool allowsConstrainedNetworkAccess = true;

  /// Transfers to one host at a time, at least 1; more wait their turn, in order.
  std::size_t httpMaximumConnectionsPerHost = 6;

  /// Transfers of the session at one time, at least 1, to whatever hosts.
  std::size_t httpMaximumConnections = 64;

  /// The longest decoded body, in bytes, that is kept in memory for a completion handler; a longer
  /// one fails as `dataLengthExceedsMaximum`.
  std::size_t maximumBodyBytes = std::size_t{256} << 20;

  /// How many bytes all such bodies of the session may take together until their handlers are
  /// called; a body that would pass this limit fails in the same way.
  std::size_t maximumBodyBytesTogether = std::size_t{256} << 20;

  /// Header fields that every request gets unless it sets them itself.
  HTTPHeaders httpAdditionalHeaders;

  /// The policy of requests that keep `useProtocolCachePolicy`.
  URLRequest::CachePolicy requestCachePolicy = URLRequest::CachePolicy::useProtocolCachePolicy;

  /// The cache that keeps answers; null: none.
  std::shared_ptr<URLCache> urlCache;

  /// Hosts that are reached on the loopback address without asking the name service, such as local
  /// test services.
  std::vector<std::string> loopbackHosts;

  /// Pinned keys, client certificates and a proxy.
  URLConnectionSettings connections;
};

}  // namespace ombrix::platform

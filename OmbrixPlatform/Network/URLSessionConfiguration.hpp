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

/// How a session behaves; copied when the session is made, changes after that have no effect on it.
///
/// Sessions speak HTTP/1.1 and, over TLS 1.2 or later where the server offers it, HTTP/2. Cookies
/// are neither kept nor sent by themselves. A request that names no "User-Agent" gets that of the
/// main bundle.
struct URLSessionConfiguration {
  /// The defaults below, with the process's shared cache.
  static URLSessionConfiguration defaultConfiguration();

  /// The defaults without any cache.
  static URLSessionConfiguration ephemeral();

  /// For transfers that may take their time: waits for connectivity, a day for each resource.
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

  /// The longest body, decoded and in bytes, that is kept in memory for a completion handler; a
  /// longer one fails as `dataLengthExceedsMaximum`.
  std::size_t maximumBodyBytes = std::size_t{256} << 20;

  /// What all such bodies of the session may take together until their handlers are called; the one
  /// that would pass it fails in the same way.
  std::size_t maximumBodyBytesTogether = std::size_t{256} << 20;

  /// Header fields that every request gets unless it sets them itself.
  HTTPHeaders httpAdditionalHeaders;

  /// The policy of requests that keep `useProtocolCachePolicy`.
  URLRequest::CachePolicy requestCachePolicy = URLRequest::CachePolicy::useProtocolCachePolicy;

  /// Where answers are kept; null: nowhere.
  std::shared_ptr<URLCache> urlCache;

  /// Hosts that are reached on the loopback address, whatever the name service says: local test
  /// services.
  std::vector<std::string> loopbackHosts;

  /// Pinned keys, client certificates and a proxy.
  URLConnectionSettings connections;
};

}  // namespace ombrix::platform

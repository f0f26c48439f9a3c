#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Network/HTTPBodySource.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Values/SharedData.hpp"

namespace ombrix::platform {

/// What to ask of which server, and how. A value: any thread may read it.
struct URLRequest {
  /// How the answer may come from the cache.
  enum class CachePolicy {
    useProtocolCachePolicy = 0,  ///< as RFC 9111 has it
    reloadIgnoringLocalCacheData =
        1,                        ///< always from the server; the answer is stored all the same
    returnCacheDataElseLoad = 2,  ///< a stored answer however old, else from the server
    returnCacheDataDontLoad = 3,  ///< a stored answer however old, else `resourceUnavailable`
  };

  explicit URLRequest(URL target, CachePolicy policy = CachePolicy::useProtocolCachePolicy,
                      std::chrono::duration<double> timeout = std::chrono::seconds(60))
      : url(std::move(target)), cachePolicy(policy), timeoutInterval(timeout) {}

  URL url;
  CachePolicy cachePolicy;

  /// Seconds without any progress after which the transfer fails as `timedOut`; the session's own
  /// limit holds where that is stricter.
  std::chrono::duration<double> timeoutInterval;

  std::string httpMethod = "GET";
  HTTPHeaders headers;
  std::optional<SharedData> httpBody;

  /// A body that is read while it is sent, in the place of `httpBody`.
  std::shared_ptr<const HTTPBodySource> httpBodySource;

  /// Seconds from `resume` to the last byte after which the transfer fails as `timedOut`; nothing
  /// for the session's own limit, which holds where it is stricter.
  std::optional<std::chrono::duration<double>> resourceTimeoutInterval;

  /// False: refused while every path to the network is constrained (Low Data Mode).
  bool allowsConstrainedNetworkAccess = true;

  /// True: what the server answers reaches the caller also where a stale answer might stand in for
  /// it or come first (RFC 5861), for callers to whom statuses and fields of each answer matter. A
  /// server that cannot be reached is replaced all the same.
  bool wantsEachAnswer = false;

  friend bool operator==(const URLRequest&, const URLRequest&) = default;
};

}  // namespace ombrix::platform

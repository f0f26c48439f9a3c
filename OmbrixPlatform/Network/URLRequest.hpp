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

/// A request to a server, and how to make it. A value: any thread may read it.
struct URLRequest {
  /// When the cache may answer.
  enum class CachePolicy {
    useProtocolCachePolicy = 0,  ///< by the rules of RFC 9111
    reloadIgnoringLocalCacheData =
        1,                        ///< always from the server; the answer is stored all the same
    returnCacheDataElseLoad = 2,  ///< a stored answer of any age, otherwise the server's
    returnCacheDataDontLoad = 3,  ///< a stored answer of any age, otherwise `resourceUnavailable`
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

  /// A body that is read while it is sent; replaces `httpBody`.
  std::shared_ptr<const HTTPBodySource> httpBodySource;

  /// Seconds from `resume` to the last byte after which the transfer fails as `timedOut`; empty for
  /// the session's own limit, which also holds where it is stricter.
  std::optional<std::chrono::duration<double>> resourceTimeoutInterval;

  /// False: refused while every path to the network is constrained (Low Data Mode).
  bool allowsConstrainedNetworkAccess = true;

  /// True: the caller gets the server's own answer even where a stale one might replace it or come
  /// first (RFC 5861); for callers that need each answer's status and fields. When the server
  /// cannot be reached, a stale answer still replaces its answer.
  bool wantsEachAnswer = false;

  friend bool operator==(const URLRequest&, const URLRequest&) = default;
};

}  // namespace ombrix::platform

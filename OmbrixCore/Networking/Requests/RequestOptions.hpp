#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "OmbrixCore/Networking/Policies/RetryPolicy.hpp"
#include "OmbrixCore/Networking/Requests/HTTPContent.hpp"
#include "OmbrixPlatform/Concurrency/NSOperation.hpp"
#include "OmbrixPlatform/Network/HTTPBodySource.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"

namespace ombrix {

/// How far a request has come, in bytes of the bodies; what is expected is -1 where nobody knows.
struct HTTPProgress {
  std::int64_t bytesSent = 0;
  std::int64_t bytesExpectedToSend = 0;
  std::int64_t bytesReceived = 0;
  std::int64_t bytesExpectedToReceive = -1;
};

/// What one request wants otherwise than the client does by itself; members that are not set change
/// nothing. A value.
///
///     RequestOptions options{.headers = {{"If-Match", tag}}, .timeout = std::chrono::seconds(5)};
struct RequestOptions {
  using ProgressHandler = std::function<void(const HTTPProgress&)>;
  using Seconds = std::chrono::duration<double>;
  using CachePolicy = platform::URLRequest::CachePolicy;
  using Priority = platform::NSOperation::QueuePriority;

  /// Header fields, set after all others and in their place. "Authorization" is left out: the
  /// client's token goes there.
  platform::HTTPHeaders headers = {};

  /// Seconds without progress, and seconds in all, after which it fails; the session's own limits
  /// hold where they are stricter.
  std::optional<Seconds> timeout = std::nullopt;
  std::optional<Seconds> totalTimeout = std::nullopt;

  /// How the answer may come from the cache.
  std::optional<CachePolicy> cachePolicy = std::nullopt;

  /// False: refused while the network is constrained (Low Data Mode).
  bool safeForLowData = true;

  /// Which of the requests that wait for a place among the client's go first. Files and streams
  /// have no such places.
  Priority priority = Priority::normal;

  /// A body that is read while it is sent, in the place of a payload: a file, a stream. Its
  /// "Content-Type" is for `headers` to say.
  std::shared_ptr<const platform::HTTPBodySource> body = nullptr;

  /// Told of what was sent, and of what is received where it is not gathered in memory (downloads,
  /// lines); on the session's delegate queue, calls may be merged.
  ProgressHandler progress = nullptr;

  /// When this request is made again, in the place of the client's policy. `progress` begins anew
  /// then, and a body that was handed over in part (lines) is not asked for again.
  std::optional<RetryPolicy> retry = std::nullopt;

  /// True: it may be made again whatever its method, since the server takes it for the same (a key
  /// of idempotency among its fields, say).
  bool mayBeRepeated = false;

  /// False: a refused token is the answer, and no refresher is asked (`RequestPolicies`).
  bool refreshesToken = true;

  /// A form or several parts, with its "Content-Type", in the place of `body`.
  std::optional<HTTPContent> content = std::nullopt;

  /// Makes the request that it says.
  void apply(platform::URLRequest& request) const;
};

}  // namespace ombrix

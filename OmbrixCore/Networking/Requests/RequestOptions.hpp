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

/// The progress of a request in bytes of the bodies; an unknown expected size is -1.
struct HTTPProgress {
  std::int64_t bytesSent = 0;
  std::int64_t bytesExpectedToSend = 0;
  std::int64_t bytesReceived = 0;
  std::int64_t bytesExpectedToReceive = -1;
};

/// How one request differs from the client's defaults; members that are not set change nothing. A
/// value.
///
///     RequestOptions options{.headers = {{"If-Match", tag}}, .timeout = std::chrono::seconds(5)};
struct RequestOptions {
  using ProgressHandler = std::function<void(const HTTPProgress&)>;
  using Seconds = std::chrono::duration<double>;
  using CachePolicy = platform::URLRequest::CachePolicy;
  using Priority = platform::NSOperation::QueuePriority;

  /// Header fields, which replace all others of the same names. "Authorization" is ignored: it
  /// carries the client's token.
  platform::HTTPHeaders headers = {};

  /// Seconds without progress, and seconds in total, after which it fails; the session's own limits
  /// hold where they are stricter.
  std::optional<Seconds> timeout = std::nullopt;
  std::optional<Seconds> totalTimeout = std::nullopt;

  /// When the cache may answer.
  std::optional<CachePolicy> cachePolicy = std::nullopt;

  /// False: refused while the network is constrained (Low Data Mode).
  bool safeForLowData = true;

  /// The rank among the requests that wait for a place in the client's queue. Files and streams
  /// need no place.
  Priority priority = Priority::normal;

  /// A body that is read while it is sent, instead of a payload: a file, a stream. `headers` has to
  /// state its "Content-Type".
  std::shared_ptr<const platform::HTTPBodySource> body = nullptr;

  /// Gets the progress of sending, and of receiving if the body is not gathered in memory
  /// (downloads, lines); called on the session's delegate queue, calls may be merged.
  ProgressHandler progress = nullptr;

  /// When this request is repeated; replaces the client's policy. `progress` then starts over, and
  /// a request whose body was handed over in part (lines) is not repeated.
  std::optional<RetryPolicy> retry = std::nullopt;

  /// True: it may be repeated whatever its method, since the server recognises it (by an
  /// idempotency key among its fields, for instance).
  bool mayBeRepeated = false;

  /// False: when the token is refused, that is the answer, and no refresher is asked
  /// (`RequestPolicies`).
  bool refreshesToken = true;

  /// A form or several parts with their "Content-Type"; replaces `body`.
  std::optional<HTTPContent> content = std::nullopt;

  /// Applies these options to a request.
  void apply(platform::URLRequest& request) const;
};

}  // namespace ombrix

#pragma once

#include <chrono>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixCore/Networking/Policies/RetryPolicy.hpp"
#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"

namespace ombrix {

struct RequestOptions;

/// Gets a new token where the service has refused that of a request (401): once for all requests
/// that are refused while it is under way. With the new token each of them is made once more; where
/// there is none they all fail with the 401, and only then `loginError` is set.
///
/// Only what a token was sent with leads here, and `RequestOptions::refreshesToken` keeps a request
/// (a login) out.
struct TokenRefresher {
  /// Gives the token, which the client keeps from then on; an exception, or an empty token, means
  /// that there is none. Runs on the thread pool. Its own requests need the options that it is
  /// given: refused themselves they would wait for it, until the time limit.
  std::function<platform::Async<std::string>(RequestOptions ownRequests)> refresh;

  /// After this it is cancelled, and counts as failed.
  std::chrono::duration<double> timeLimit{30};
};

/// Sees requests and answers pass; for those who sign, measure or rewrite them. Any number of
/// requests may pass at one time.
///
/// Each attempt passes: its request those in their order, as the last step before it is sent; its
/// answer in the reverse order, before retry policy, token refresher and listeners look at it.
class RequestInterceptor {
 public:
  using Answer = std::expected<HTTPAnswer, HTTPError>;

  virtual ~RequestInterceptor() = default;

  /// Changes the request that goes out. It holds the user's token: nothing of it belongs in a log.
  /// An exception keeps the request from being sent, which fails with `badRequestError`. On
  /// `OmbrixServerAPI::dispatchQueue`.
  virtual void goesOut([[maybe_unused]] platform::URLRequest& request,
                       [[maybe_unused]] int attempt) {}

  /// Changes what came of it. It must not throw, and should return soon: it runs on the session's
  /// delegate queue.
  virtual void comesIn([[maybe_unused]] Answer& answer) {}
};

/// What one attempt took, for listeners.
struct AttemptReport {
  std::string request;  ///< method and URL, without what may be secret in it
  int code = 0;         ///< the status, or a pseudo-code (`HTTPError::withStatusCode`)
  HTTPMetrics metrics;  ///< with the number of the attempt
  /// How long until the next attempt: a retry's pause, or 0 where a new token comes first; nothing
  /// where this was the last one.
  std::optional<std::chrono::duration<double>> next;
};

/// What a client does with all its requests beside making them; nothing by itself. A value.
///
///     api.setPolicies({.retry = RetryPolicy(), .tokenRefresher = {.refresh = refresh}});
struct RequestPolicies {
  /// For requests without one of their own (`RequestOptions::retry`).
  std::optional<RetryPolicy> retry = std::nullopt;

  std::optional<TokenRefresher> tokenRefresher = std::nullopt;

  std::vector<std::shared_ptr<RequestInterceptor>> interceptors = {};

  /// Told of each attempt that is over, in their order, on the session's delegate queue.
  std::vector<std::function<void(const AttemptReport&)>> listeners = {};
};

}  // namespace ombrix

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

/// Gets a new token when the service has refused a request's token (401): once for all requests
/// that are refused meanwhile. With the new token each of them is made once more; without one they
/// all fail with the 401, and only then `loginError` is set.
///
/// Only requests that were sent with a token lead here, and `RequestOptions::refreshesToken`
/// exempts a request, such as a login.
struct TokenRefresher {
  /// Gives the token, which the client keeps from then on; an exception, or an empty token, means
  /// that there is none. Runs on the thread pool. Its own requests must use the options that it
  /// gets: if they were refused, they would wait for it, until the time limit.
  std::function<platform::Async<std::string>(RequestOptions ownRequests)> refresh;

  /// After this it is cancelled, and counts as failed.
  std::chrono::duration<double> timeLimit{30};
};

/// Sees requests and answers pass, in order to sign, measure or rewrite them. Any number of
/// requests may pass at the same time.
///
/// Every attempt passes all interceptors: its request in their order, as the last step before it is
/// sent; its answer in the reverse order, before the retry policy, the token refresher and the
/// listeners see it.
class RequestInterceptor {
 public:
  using Answer = std::expected<HTTPAnswer, HTTPError>;

  virtual ~RequestInterceptor() = default;

  /// Changes the outgoing request. It holds the user's token, so no part of it belongs in a log. An
  /// exception keeps the request from being sent, and it fails with `badRequestError`. On
  /// `OmbrixServerAPI::dispatchQueue`.
  virtual void goesOut([[maybe_unused]] platform::URLRequest& request,
                       [[maybe_unused]] int attempt) {}

  /// Changes the outcome. It must not throw, and should return soon: it runs on the session's
  /// delegate queue.
  virtual void comesIn([[maybe_unused]] Answer& answer) {}
};

/// The facts of one attempt, for listeners.
struct AttemptReport {
  std::string request;  ///< method and URL, without its secret parts
  int code = 0;         ///< the status, or a pseudo-code (`HTTPError::withStatusCode`)
  HTTPMetrics metrics;  ///< with the number of the attempt
  /// How long until the next attempt: a retry's pause, or 0 when a new token comes first; empty
  /// when this was the last one.
  std::optional<std::chrono::duration<double>> next;
};

/// What a client does with its requests besides making them; by default nothing. A value.
///
///     api.setPolicies({.retry = RetryPolicy(),
///                      .tokenRefresher = TokenRefresher{.refresh = refresh}});
struct RequestPolicies {
  /// For requests without a retry policy of their own (`RequestOptions::retry`).
  std::optional<RetryPolicy> retry = std::nullopt;

  std::optional<TokenRefresher> tokenRefresher = std::nullopt;

  std::vector<std::shared_ptr<RequestInterceptor>> interceptors = {};

  /// Called for each attempt that is over, in their order, on the session's delegate queue.
  std::vector<std::function<void(const AttemptReport&)>> listeners = {};
};

}  // namespace ombrix

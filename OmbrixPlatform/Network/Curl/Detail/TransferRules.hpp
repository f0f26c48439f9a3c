#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLOrigin.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSessionConfiguration.hpp"

namespace ombrix::platform::detail {

// Decides what a task does next; nothing here acts on it.

/// The request as it goes out: with the session's fields and policy. Fields that say who the client
/// is are not added for another origin than the first.
[[nodiscard]] std::shared_ptr<const URLRequest> completed(
    std::shared_ptr<const URLRequest> request, const URLSessionConfiguration& configuration,
    const URL& firstURL);

/// Why a request to an origin (empty: its URL has none) cannot be sent; null when it can be sent.
[[nodiscard]] std::shared_ptr<const URLError> refusal(const URLRequest& request,
                                                      const std::optional<URLOrigin>& origin);

/// Whether a method is idempotent (RFC 9110 section 9.2.2).
[[nodiscard]] bool isIdempotent(std::string_view method) noexcept;

/// The next step after an answer.
struct AfterAnswer {
  enum class Step : std::uint8_t {
    conclude,    ///< it is the task's answer
    follow,      ///< ask the delegate, then send `next`
    loadAfresh,  ///< the server confirms another answer than the kept one: ask without conditions
    fail,        ///< with `error`
  };
  Step step = Step::conclude;
  std::optional<URLRequest> next;
  std::shared_ptr<const URLError> error;
};

/// @param redirects How many redirects were followed before.
/// @param isUnconfirmed Whether it is a 304 to the cache's conditions that the cache could not use.
[[nodiscard]] AfterAnswer afterAnswer(const URLRequest& request, const HTTPURLResponse& response,
                                      int redirects, bool isUnconfirmed);

/// The next step after a failed exchange.
struct FailedExchange {
  bool hasHeader = false;             ///< the answer has begun
  bool wasSent = false;               ///< the request may have reached the server
  bool connectionDiedBefore = false;  ///< a reused connection died before any answer
  bool isResend = false;              ///< it was the second sending already
  bool isIdempotent = false;
  bool isHTTP1Required = false;  ///< the server has done nothing, and asks for HTTP/1.1
  bool foundSurplus = false;     ///< bytes that nobody had asked for lay on the connection
  bool isUndecided = false;      ///< nobody has decided about the server's certificate
  bool isMissingConnectivity = false;
  bool waitsForConnectivity = false;  ///< the session wants to wait for it
};

enum class AfterFailure : std::uint8_t {
  fail,
  sendAgain,          ///< once, on a new connection
  sendByHTTP1,        ///< once, on a new connection
  tryOther,           ///< on another connection; nothing was sent
  askAboutTrust,      ///< then try again
  awaitConnectivity,  ///< then try again
};

[[nodiscard]] AfterFailure afterFailure(const FailedExchange& exchange) noexcept;

/// Whether a host is this machine, for which no proxy is used.
[[nodiscard]] bool isLoopback(const std::string& host) noexcept;

}  // namespace ombrix::platform::detail

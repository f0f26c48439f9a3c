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

// What a task does next. Nothing here does anything: it only decides.

/// The request as it goes out: with the session's fields and policy. Fields that say who the client
/// is are not added for another origin than the first.
[[nodiscard]] std::shared_ptr<const URLRequest> completed(
    std::shared_ptr<const URLRequest> request, const URLSessionConfiguration& configuration,
    const URL& firstURL);

/// Why a request to an origin (nothing: its URL has none) cannot be sent; null when it can.
[[nodiscard]] std::shared_ptr<const URLError> refusal(const URLRequest& request,
                                                      const std::optional<URLOrigin>& origin);

/// Whether a method has the same effect twice as once (RFC 9110 section 9.2.2).
[[nodiscard]] bool isIdempotent(std::string_view method) noexcept;

/// What an answer leads to.
struct AfterAnswer {
  enum class Step : std::uint8_t {
    conclude,    ///< it is the task's answer
    follow,      ///< ask the delegate, then send `next`
    loadAfresh,  ///< the server confirms something else than what is kept: ask without conditions
    fail,        ///< with `error`
  };
  Step step = Step::conclude;
  std::optional<URLRequest> next;
  std::shared_ptr<const URLError> error;
};

/// @param redirects How many were followed before.
/// @param isUnconfirmed A 304 to conditions of the cache, which it could not use.
[[nodiscard]] AfterAnswer afterAnswer(const URLRequest& request, const HTTPURLResponse& response,
                                      int redirects, bool isUnconfirmed);

/// What a failed exchange leads to.
struct FailedExchange {
  bool hasHeader = false;             ///< the answer has begun
  bool wasSent = false;               ///< the request may have reached the server
  bool connectionDiedBefore = false;  ///< a connection in use again died before any answer
  bool isResend = false;              ///< it was the second sending already
  bool isIdempotent = false;
  bool isHTTP1Required = false;  ///< the server has done nothing, and wants it over HTTP/1.1
  bool foundSurplus = false;     ///< bytes that nobody had asked for lay on the connection
  bool isUndecided = false;      ///< nobody has decided about the server's certificate
  bool isMissingConnectivity = false;
  bool waitsForConnectivity = false;  ///< the session does
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

/// Whether a host is this machine, which no proxy is asked for.
[[nodiscard]] bool isLoopback(const std::string& host) noexcept;

}  // namespace ombrix::platform::detail

#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix {

class HTTPError;

/// A budget that the retries of many requests share, so that they do not multiply the load of a
/// server that is down: each retry takes a whole token, and each answer gives a part of one back.
/// Any thread.
class RetryBudget {
 public:
  /// @param most Tokens at first, and at any time the most, from 0.
  /// @param perAnswer What each successful answer gives back, from 0.
  explicit RetryBudget(double most = 10, double perAnswer = 0.1)
      : most_(most), perAnswer_(perAnswer), tokens_(most) {}

  /// Takes a token for a retry; false when there is none.
  [[nodiscard]] bool take();

  /// A request has succeeded.
  void succeeded();

 private:
  const double most_, perAnswer_;
  platform::FutexLock lock_;
  double tokens_ OMBRIX_GUARDED_BY(lock_);
};

/// When a failed request is made once more, and after what pause. A value; copies share their
/// budget. No request has one by default: see `RequestPolicies` and `RequestOptions::retry`.
///
/// Only requests whose method is idempotent (RFC 9110 section 9.2.2) are made again, and those that
/// `RequestOptions::mayBeRepeated` marks. Before retry n the pause is a random part of `firstDelay`
/// * 2^(n - 1), at most of `longestDelay` (back-off with full jitter), and never shorter than the
/// answer's "Retry-After", in seconds or as a date, demands.
struct RetryPolicy {
  using Seconds = std::chrono::duration<double>;

  /// Attempts of a request, the first one included; below 2: no retry.
  int maximumAttempts = 3;

  Seconds firstDelay{0.5};
  Seconds longestDelay{20};

  /// A server that demands a longer pause than this is not asked again.
  Seconds longestRetryAfter{60};

  /// No attempt begins later than this after the first one has.
  Seconds totalTime{120};

  /// Null: none.
  std::shared_ptr<RetryBudget> budget = std::make_shared<RetryBudget>();

  /// Which failures are worth a retry; empty: `isWorthARetry`. Called on the session's delegate
  /// queue.
  std::function<bool(const HTTPError&)> decides = nullptr;

  /// Random numbers from 0 (included) to 1 (excluded), on any thread; empty: the process's own.
  std::function<double()> random = nullptr;

  /// The pause before a retry, counted from 1; empty when the failure, or the pause that its answer
  /// demands, rules a retry out. Attempts, total time and budget are not looked at.
  [[nodiscard]] std::optional<Seconds> pauseBefore(int retry, const HTTPError& error) const;

  /// Whether an attempt may begin after a pause.
  ///
  /// @param attempts How many there were.
  /// @param elapsed Since the first one began.
  [[nodiscard]] bool allowsAnother(int attempts, Seconds elapsed, Seconds pause) const noexcept {
    return attempts < maximumAttempts && elapsed + pause <= totalTime;
  }

  /// Whether a retry may succeed soon: after statuses 408, 429, 500, 502, 503 and 504, and when the
  /// server could not be reached, did not answer in time or broke off.
  [[nodiscard]] static bool isWorthARetry(const HTTPError& error) noexcept;
};

/// How long an answer's "Retry-After" asks a client to wait, in either of its forms (RFC 9110
/// section 10.2.3), 0 for a past date; empty when the field is missing or cannot be read.
[[nodiscard]] std::optional<std::chrono::duration<double>> retryAfter(
    const platform::HTTPURLResponse& response, platform::Date now);

}  // namespace ombrix

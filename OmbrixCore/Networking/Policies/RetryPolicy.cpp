#include "OmbrixCore/Networking/Policies/RetryPolicy.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <random>
#include <string_view>
#include <system_error>

#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixPlatform/Network/HTTPDate.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix {
namespace {

constexpr std::array kStatuses{408, 429, 500, 502, 503, 504};

double randomPart() {
  thread_local std::mt19937_64 generator{std::random_device{}()};
  return std::uniform_real_distribution<double>(0, 1)(generator);
}

}  // namespace

bool RetryBudget::take() {
  const platform::LockGuard lock(lock_);
  if (tokens_ < 1) return false;
  tokens_ -= 1;
  return true;
}

void RetryBudget::succeeded() {
  const platform::LockGuard lock(lock_);
  tokens_ = std::min(most_, tokens_ + perAnswer_);
}

bool RetryPolicy::isWorthARetry(const HTTPError& error) noexcept {
  if (const auto* transport = error.underlyingError()) {
    using enum platform::URLError::Code;
    switch (transport->code()) {
      case timedOut:
      case cannotFindHost:
      case cannotConnectToHost:
      case networkConnectionLost:
      case dnsLookupFailed:
      case notConnectedToInternet:
        return true;
      default:
        return false;
    }
  }
  const auto* cause = error.cause();
  return cause != nullptr && std::ranges::find(kStatuses, cause->code) != kStatuses.end();
}

std::optional<RetryPolicy::Seconds> RetryPolicy::pauseBefore(int retry,
                                                             const HTTPError& error) const {
  if (!(decides ? decides(error) : isWorthARetry(error))) return std::nullopt;
  const Seconds widest = std::min(longestDelay, firstDelay * std::exp2(std::min(retry - 1, 60)));
  const double part = std::clamp(random ? random() : randomPart(), 0.0, 1.0);
  const Seconds backOff = std::max(Seconds(0), widest * part);
  if (error.cause() == nullptr || !error.cause()->response) return backOff;
  const auto wanted = retryAfter(*error.cause()->response, platform::services().clock.get().now());
  if (!wanted) return backOff;
  if (*wanted > longestRetryAfter) return std::nullopt;
  return std::max(backOff, *wanted);
}

std::optional<std::chrono::duration<double>> retryAfter(const platform::HTTPURLResponse& response,
                                                        platform::Date now) {
  using Seconds = std::chrono::duration<double>;
  auto text = response.valueForHTTPHeaderField("Retry-After").value_or("");
  const auto start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) return std::nullopt;
  text = text.substr(start, text.find_last_not_of(" \t") + 1 - start);
  if (text.find_first_not_of("0123456789") == std::string_view::npos) {
    std::uint64_t seconds = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), seconds);
    return read.ec == std::errc() ? Seconds(seconds) : Seconds::max();
  }
  const auto date = platform::dateFromHTTPText(text, now);
  if (!date) return std::nullopt;
  return std::max(Seconds(0), Seconds(*date - now));
}

}  // namespace ombrix

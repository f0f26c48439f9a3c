#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "OmbrixCore/Networking/Policies/RequestFlows.hpp"
#include "OmbrixCore/Networking/Policies/RequestPolicies.hpp"
#include "OmbrixCore/Networking/Requests/OmbrixAPIHttpRequestOperation.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix::detail {

/// One request under policies, delivered to one subscriber: its attempts, one after the other, and
/// the waits between them. The client keeps it from its first demand to its end.
class RequestFlow final : public platform::Subscription,
                          public std::enable_shared_from_this<RequestFlow> {
 public:
  using AnySubscriber = std::shared_ptr<platform::Subscriber<HTTPAnswer, HTTPError>>;
  using Operation = std::shared_ptr<OmbrixAPIHttpRequestOperation>;
  using Seconds = std::chrono::duration<double>;

  RequestFlow(std::shared_ptr<RequestFlows> flows, std::shared_ptr<const RequestPolicies> policies,
              Operation operation, AnySubscriber downstream);

  void request(platform::Demand demand) override;
  void cancel() override;

  [[nodiscard]] bool isLong() const noexcept { return isLong_; }

 private:
  class Attempt;

  /// The step after a failure.
  struct Next {
    Operation operation;
    Seconds pause{};
    bool wantsToken = false;
  };

  void start(const Operation& operation);
  void ended(const void* attempt, RequestInterceptor::Answer answer);
  void vanished(const void* attempt);
  Operation take(const void* attempt);
  std::optional<Next> nextAfter(const OmbrixAPIHttpRequestOperation& failed,
                                const HTTPError& error);
  void startAfter(Seconds pause, std::chrono::steady_clock::time_point at, Operation operation);
  void awaitToken(const OmbrixAPIHttpRequestOperation& refused, Operation next, HTTPError error);
  void deliver(const RequestInterceptor::Answer& answer);
  AnySubscriber finish();

  const std::shared_ptr<RequestFlows> flows_;
  const std::shared_ptr<const RequestPolicies> policies_;
  const std::optional<RetryPolicy> retry_;
  const std::optional<TokenRefresher> refresher_;
  const bool isLong_;

  // Used at the end of an attempt and by the step that follows it, never at the same time.
  std::chrono::steady_clock::time_point begun_;
  int retries_ = 0;
  bool hasRefreshed_ = false;

  platform::FutexLock lock_;
  // The first attempt, or the one in flight; null in between and at the end.
  Operation operation_ OMBRIX_GUARDED_BY(lock_);
  platform::EventToken pause_ OMBRIX_GUARDED_BY(lock_);
  AnySubscriber downstream_ OMBRIX_GUARDED_BY(lock_);  // null at the end
  bool hasBegun_ OMBRIX_GUARDED_BY(lock_) = false;
};

}  // namespace ombrix::detail

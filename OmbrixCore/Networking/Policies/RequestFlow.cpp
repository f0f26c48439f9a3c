#include "OmbrixCore/Networking/Policies/Detail/RequestFlow.hpp"

#include <ranges>
#include <utility>

#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixCore/Networking/Policies/Detail/TokenRefreshes.hpp"
#include "OmbrixCore/Networking/Requests/HTTPRequestOperationPublisher.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::detail {
namespace {

using Method = HttpRequestOperation::HTTPMethod;

bool isIdempotent(Method method) noexcept {
  return method != Method::POST && method != Method::PATCH && method != Method::CONNECT;
}

bool mayBeRepeated(const OmbrixAPIHttpRequestOperation& operation) {
  return isIdempotent(operation.method()) ||
         (operation.options() && operation.options()->mayBeRepeated);
}

std::optional<RetryPolicy> retryOf(const HttpRequestOperation& operation,
                                   const RequestPolicies* policies) {
  if (operation.options() && operation.options()->retry) return operation.options()->retry;
  return policies != nullptr ? policies->retry : std::nullopt;
}

std::optional<TokenRefresher> refresherOf(const HttpRequestOperation& operation,
                                          const RequestPolicies* policies) {
  const bool isWanted = !operation.options() || operation.options()->refreshesToken;
  return policies != nullptr && isWanted ? policies->tokenRefresher : std::nullopt;
}

std::chrono::steady_clock::time_point steadyNow() {
  return platform::services().clock.get().steadyNow();
}

}  // namespace

/// Receives the outcome of one attempt. The operation releases it at its end; if no answer has come
/// by then, none will.
class RequestFlow::Attempt final : public platform::Subscriber<HTTPAnswer, HTTPError> {
 public:
  Attempt(std::weak_ptr<RequestFlow> flow, const void* operation)
      : flow_(std::move(flow)), operation_(operation) {}
  ~Attempt() override {
    if (const auto flow = flow_.lock()) flow->vanished(operation_);
  }

  void receiveSubscription(std::shared_ptr<platform::Subscription> subscription) override {
    subscription->request(platform::Demand::max(1));
  }
  platform::Demand receiveValue(const HTTPAnswer& answer) override {
    if (const auto flow = flow_.lock()) flow->ended(operation_, answer);
    return platform::Demand::none();
  }
  void receiveCompletion(const platform::Completion<HTTPError>& completion) override {
    const auto flow = flow_.lock();
    if (flow && !completion.isFinished()) {
      flow->ended(operation_, std::unexpected(*completion.failure()));
    }
  }

 private:
  const std::weak_ptr<RequestFlow> flow_;
  const void* const operation_;  // tells attempts apart
};

RequestFlow::RequestFlow(std::shared_ptr<RequestFlows> flows,
                         std::shared_ptr<const RequestPolicies> policies, Operation operation,
                         AnySubscriber downstream)
    : flows_(std::move(flows)),
      policies_(std::move(policies)),
      retry_(retryOf(*operation, policies_.get())),
      refresher_(refresherOf(*operation, policies_.get())),
      isLong_(operation->isLongTransfer()),
      operation_(std::move(operation)),
      downstream_(std::move(downstream)) {}

void RequestFlow::request(platform::Demand demand) {
  if (demand.isNone()) platform::fatalError("a subscriber requested no values");
  Operation first;
  {
    const platform::LockGuard lock(lock_);
    if (!downstream_ || std::exchange(hasBegun_, true)) return;
    first = operation_;
  }
  begun_ = steadyNow();
  flows_->add(shared_from_this());
  start(first);
}

void RequestFlow::cancel() {
  const auto self = shared_from_this();
  const auto released = finish();
  flows_->remove(*this);
}

void RequestFlow::start(const Operation& operation) {
  operation->setDefersLoginError(refresher_ && !hasRefreshed_);
  if (policies_ && !policies_->interceptors.empty()) {
    operation->setLastStep(
        [policies = policies_, attempt = operation->attempt()](platform::URLRequest& request) {
          for (const auto& each : policies->interceptors) each->goesOut(request, attempt);
        });
  }
  bool isOver = false;
  {
    const platform::LockGuard lock(lock_);
    isOver = downstream_ == nullptr;
    if (!isOver) operation_ = operation;
  }
  if (isOver) return flows_->remove(*this);
  const auto attempt = std::make_shared<Attempt>(weak_from_this(), operation.get());
  HTTPRequestOperationPublisher(operation).receive(attempt);
}

/// Takes the operation of the running attempt, which is over; null if another attempt is running,
/// or none.
RequestFlow::Operation RequestFlow::take(const void* attempt) {
  const platform::LockGuard lock(lock_);
  return operation_.get() == attempt ? std::exchange(operation_, nullptr) : nullptr;
}

void RequestFlow::ended(const void* attempt, RequestInterceptor::Answer answer) {
  const auto operation = take(attempt);
  if (!operation) return;
  AttemptReport report{.request = operation->name(), .metrics = operation->exchange().metrics};
  report.metrics.attempt = operation->attempt();
  if (answer) answer->metrics.attempt = operation->attempt();
  if (policies_) {
    for (const auto& each : std::views::reverse(policies_->interceptors)) {
      platform::callOut("an interceptor of requests", [&] { each->comesIn(answer); });
    }
  }
  std::optional<Next> next;
  if (answer) {
    report.code = answer->code;
    if (retry_ && retry_->budget) retry_->budget->succeeded();
  } else {
    report.code = answer.error().cause() != nullptr ? answer.error().cause()->code : 0;
    next = nextAfter(*operation, answer.error());
  }
  // Before anyone is told of the pause, since it begins now.
  const auto at = platform::deadlineAfter(next ? next->pause : Seconds());
  if (next) report.next = next->pause;
  if (policies_) {
    for (const auto& listener : policies_->listeners) {
      platform::callOut("a listener of requests", [&] { listener(report); });
    }
  }
  if (!next) return deliver(answer);
  if (next->wantsToken) return awaitToken(*operation, std::move(next->operation), answer.error());
  startAfter(next->pause, at, std::move(next->operation));
}

std::optional<RequestFlow::Next> RequestFlow::nextAfter(const OmbrixAPIHttpRequestOperation& failed,
                                                        const HTTPError& error) {
  if (failed.hasDeferredLoginError()) {
    hasRefreshed_ = true;
    return Next{.operation = failed.nextAttempt(), .wantsToken = true};
  }
  if (!retry_ || !mayBeRepeated(failed)) return std::nullopt;
  const int retry = retries_ + 1;
  const auto pause = retry_->pauseBefore(retry, error);
  if (!pause || !retry_->allowsAnother(retry, steadyNow() - begun_, *pause)) return std::nullopt;
  auto next = failed.nextAttempt();
  if (!next || (retry_->budget && !retry_->budget->take())) return std::nullopt;
  retries_ = retry;
  return Next{.operation = std::move(next), .pause = *pause};
}

void RequestFlow::startAfter(Seconds pause, std::chrono::steady_clock::time_point at,
                             Operation operation) {
  auto begin = [weak = weak_from_this(), operation = std::move(operation)]() mutable {
    auto job = [weak, operation = std::move(operation)] {
      if (const auto self = weak.lock()) self->start(operation);
    };
    OmbrixServerAPI::dispatchQueue()->async(std::move(job));
  };
  if (pause <= Seconds(0)) return begin();
  auto timer = platform::after(at, std::move(begin));
  const platform::LockGuard lock(lock_);
  if (downstream_) std::swap(pause_, timer);
}

void RequestFlow::awaitToken(const OmbrixAPIHttpRequestOperation& refused, Operation next,
                             HTTPError error) {
  auto goOn = [weak = weak_from_this(), next = std::move(next),
               error = std::move(error)](bool hasToken) {
    const auto self = weak.lock();
    if (!self) return;
    if (hasToken && next) return self->start(next);
    self->deliver(std::unexpected(error));
  };
  flows_->refreshes_->await(*refresher_, refused.environment(), *refused.sentToken(),
                            std::move(goOn));
}

/// An operation has released its attempt.
void RequestFlow::vanished(const void* attempt) {
  if (!take(attempt)) return;
  const auto self = shared_from_this();
  const auto released = finish();
  flows_->remove(*this);
}

void RequestFlow::deliver(const RequestInterceptor::Answer& answer) {
  const auto self = shared_from_this();
  if (const auto downstream = finish()) {
    using Completion = platform::Completion<HTTPError>;
    if (answer) downstream->receiveValue(*answer);
    downstream->receiveCompletion(answer ? Completion::finished()
                                         : Completion::failure(answer.error()));
  }
  flows_->remove(*this);
}

/// Ends the flow, once; returns the subscriber to tell.
RequestFlow::AnySubscriber RequestFlow::finish() {
  Operation operation;
  platform::EventToken pause;
  AnySubscriber downstream;
  {
    const platform::LockGuard lock(lock_);
    operation.swap(operation_);
    std::swap(pause, pause_);
    downstream.swap(downstream_);
  }
  if (operation) operation->cancel();
  return downstream;
}

}  // namespace ombrix::detail

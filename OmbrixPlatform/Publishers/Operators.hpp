#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

/// The subscribers between a source and the subscriber of an operator.
namespace ombrix::platform::detail {

/// A subscription that has already ended.
std::shared_ptr<Subscription> emptySubscription();

/// The subscription that an operator passes on. Only the source keeps the operator alive: when the
/// source releases it, the whole chain down to the last subscriber is destroyed.
template <class Operator>
class OperatorSubscription final : public Subscription {
 public:
  explicit OperatorSubscription(std::weak_ptr<Operator> target) : target_(std::move(target)) {}

  void request(Demand demand) override {
    if (const auto target = target_.lock()) target->request(demand);
  }
  void cancel() override {
    if (const auto target = target_.lock()) target->cancel();
  }

 private:
  const std::weak_ptr<Operator> target_;
};

template <class Input, class Output, class Failure, class Transform>
class MapSubscriber final : public Subscriber<Input, Failure> {
 public:
  MapSubscriber(std::shared_ptr<Subscriber<Output, Failure>> downstream, Transform transform)
      : downstream_(std::move(downstream)), transform_(std::move(transform)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    downstream_->receiveSubscription(std::move(subscription));
  }
  Demand receiveValue(const Input& value) override {
    return downstream_->receiveValue(
        callOut("a transform", [&]() -> Output { return std::invoke(transform_, value); }));
  }
  void receiveCompletion(const Completion<Failure>& completion) override {
    downstream_->receiveCompletion(completion);
  }

 private:
  const std::shared_ptr<Subscriber<Output, Failure>> downstream_;
  const Transform transform_;
};

template <class Failure>
std::exception_ptr exceptionOf(const Failure& failure) {
  return std::make_exception_ptr(failure);
}
inline std::exception_ptr exceptionOf(const std::exception_ptr& failure) { return failure; }
inline std::exception_ptr exceptionOf(const Never&) { return nullptr; }

template <class Input, class Output, class Failure, class Transform>
class TryMapSubscriber final : public Subscriber<Input, Failure> {
 public:
  using Downstream = Subscriber<Output, std::exception_ptr>;

  TryMapSubscriber(std::shared_ptr<Downstream> downstream, Transform transform)
      : downstream_(std::move(downstream)), transform_(std::move(transform)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    subscription_ = subscription;
    downstream_->receiveSubscription(std::move(subscription));
  }
  Demand receiveValue(const Input& value) override {
    if (hasEnded_) return Demand::none();
    std::optional<Output> output;
    try {
      output.emplace(std::invoke(transform_, value));
    } catch (...) {
      hasEnded_ = true;
      if (const auto subscription = subscription_.lock()) subscription->cancel();
      downstream_->receiveCompletion(
          Completion<std::exception_ptr>::failure(std::current_exception()));
      return Demand::none();
    }
    return downstream_->receiveValue(*output);
  }
  void receiveCompletion(const Completion<Failure>& completion) override {
    if (std::exchange(hasEnded_, true)) return;
    using Mapped = Completion<std::exception_ptr>;
    downstream_->receiveCompletion(completion.isFinished()
                                       ? Mapped::finished()
                                       : Mapped::failure(exceptionOf(*completion.failure())));
  }

 private:
  // A source calls one at a time, so the state needs no lock.
  const std::shared_ptr<Downstream> downstream_;
  const Transform transform_;
  std::weak_ptr<Subscription> subscription_;
  bool hasEnded_ = false;
};

template <class Output, class Failure, class NewFailure, class Transform>
class MapErrorSubscriber final : public Subscriber<Output, Failure> {
 public:
  MapErrorSubscriber(std::shared_ptr<Subscriber<Output, NewFailure>> downstream,
                     Transform transform)
      : downstream_(std::move(downstream)), transform_(std::move(transform)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    downstream_->receiveSubscription(std::move(subscription));
  }
  Demand receiveValue(const Output& value) override { return downstream_->receiveValue(value); }
  void receiveCompletion(const Completion<Failure>& completion) override {
    using Mapped = Completion<NewFailure>;
    downstream_->receiveCompletion(callOut("a transform of failures", [&] {
      return completion.isFinished()
                 ? Mapped::finished()
                 : Mapped::failure(std::invoke(transform_, *completion.failure()));
    }));
  }

 private:
  const std::shared_ptr<Subscriber<Output, NewFailure>> downstream_;
  const Transform transform_;
};

template <class Output, class Failure, class Handlers>
class HandleEventsSubscriber final
    : public Subscriber<Output, Failure>,
      public std::enable_shared_from_this<HandleEventsSubscriber<Output, Failure, Handlers>> {
 public:
  HandleEventsSubscriber(std::shared_ptr<Subscriber<Output, Failure>> downstream, Handlers handlers)
      : downstream_(std::move(downstream)), handlers_(std::move(handlers)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    call(handlers_.receiveSubscription);
    {
      const LockGuard lock(mutex_);
      upstream_ = std::move(subscription);
    }
    downstream_->receiveSubscription(
        std::make_shared<OperatorSubscription<HandleEventsSubscriber>>(this->weak_from_this()));
  }
  Demand receiveValue(const Output& value) override {
    call(handlers_.receiveOutput, value);
    const Demand more = downstream_->receiveValue(value);
    if (!more.isNone()) call(handlers_.receiveRequest, more);
    return more;
  }
  void receiveCompletion(const Completion<Failure>& completion) override {
    takeUpstream();
    call(handlers_.receiveCompletion, completion);
    downstream_->receiveCompletion(completion);
  }

  void request(Demand demand) {
    call(handlers_.receiveRequest, demand);
    std::shared_ptr<Subscription> upstream;
    {
      const LockGuard lock(mutex_);
      upstream = upstream_;
    }
    if (upstream) upstream->request(demand);
  }
  void cancel() {
    const auto upstream = takeUpstream();
    if (!upstream) return;
    call(handlers_.receiveCancel);
    upstream->cancel();
  }

 private:
  static void call(const auto& handler, const auto&... arguments) {
    if (handler) callOut("a handler of events", [&] { handler(arguments...); });
  }

  std::shared_ptr<Subscription> takeUpstream() {
    const LockGuard lock(mutex_);
    return std::exchange(upstream_, nullptr);
  }

  const std::shared_ptr<Subscriber<Output, Failure>> downstream_;
  const Handlers handlers_;
  FutexLock mutex_;
  std::shared_ptr<Subscription> upstream_ OMBRIX_GUARDED_BY(mutex_);
};

/// Delivers one value on the first request and finishes.
template <class Output, class Failure>
class OnceSubscription final : public Subscription {
 public:
  using AnySubscriber = std::shared_ptr<Subscriber<Output, Failure>>;

  OnceSubscription(AnySubscriber downstream, Output value)
      : downstream_(std::move(downstream)), value_(std::move(value)) {}

  static void start(AnySubscriber downstream, Output value) {
    auto subscription = std::make_shared<OnceSubscription>(downstream, std::move(value));
    downstream->receiveSubscription(std::move(subscription));
  }

  void request(Demand demand) override {
    if (demand.isNone()) return;
    AnySubscriber downstream;
    {
      const LockGuard lock(mutex_);
      if (std::exchange(isServed_, true)) return;
      downstream = downstream_;
    }
    if (!downstream) return;
    downstream->receiveValue(value_);
    // Receiving the value may have cancelled the subscription.
    if (take()) downstream->receiveCompletion(Completion<Failure>::finished());
  }
  void cancel() override { take(); }

 private:
  AnySubscriber take() {
    const LockGuard lock(mutex_);
    return std::exchange(downstream_, nullptr);
  }

  FutexLock mutex_;
  AnySubscriber downstream_ OMBRIX_GUARDED_BY(mutex_);
  bool isServed_ OMBRIX_GUARDED_BY(mutex_) = false;
  const Output value_;
};

}  // namespace ombrix::platform::detail

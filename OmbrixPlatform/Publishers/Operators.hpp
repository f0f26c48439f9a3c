#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"

/// The subscribers between a source and the subscriber of an operator.
namespace ombrix::platform::detail {

/// A subscription of something that is over already.
std::shared_ptr<Subscription> emptySubscription();

template <class Input, class Output, class Failure, class Transform>
class MapSubscriber final : public Subscriber<Input, Failure> {
 public:
  MapSubscriber(std::shared_ptr<Subscriber<Output, Failure>> downstream, Transform transform)
      : downstream_(std::move(downstream)), transform_(std::move(transform)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    downstream_->receiveSubscription(std::move(subscription));
  }
  Demand receiveValue(const Input& value) override {
    return downstream_->receiveValue(std::invoke(transform_, value));
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
    downstream_->receiveCompletion(
        completion.isFinished() ? Mapped::finished()
                                : Mapped::failure(std::invoke(transform_, *completion.failure())));
  }

 private:
  const std::shared_ptr<Subscriber<Output, NewFailure>> downstream_;
  const Transform transform_;
};

template <class Output, class Failure, class Handlers>
class HandleEventsSubscriber final
    : public Subscriber<Output, Failure>,
      public Subscription,
      public std::enable_shared_from_this<HandleEventsSubscriber<Output, Failure, Handlers>> {
 public:
  HandleEventsSubscriber(std::shared_ptr<Subscriber<Output, Failure>> downstream, Handlers handlers)
      : downstream_(std::move(downstream)), handlers_(std::move(handlers)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    if (handlers_.receiveSubscription) handlers_.receiveSubscription();
    {
      const std::lock_guard lock(mutex_);
      upstream_ = std::move(subscription);
    }
    downstream_->receiveSubscription(this->shared_from_this());
  }
  Demand receiveValue(const Output& value) override {
    if (handlers_.receiveOutput) handlers_.receiveOutput(value);
    const Demand more = downstream_->receiveValue(value);
    if (!more.isNone() && handlers_.receiveRequest) handlers_.receiveRequest(more);
    return more;
  }
  void receiveCompletion(const Completion<Failure>& completion) override {
    takeUpstream();
    if (handlers_.receiveCompletion) handlers_.receiveCompletion(completion);
    downstream_->receiveCompletion(completion);
  }

  void request(Demand demand) override {
    if (handlers_.receiveRequest) handlers_.receiveRequest(demand);
    std::shared_ptr<Subscription> upstream;
    {
      const std::lock_guard lock(mutex_);
      upstream = upstream_;
    }
    if (upstream) upstream->request(demand);
  }
  void cancel() override {
    const auto upstream = takeUpstream();
    if (!upstream) return;
    if (handlers_.receiveCancel) handlers_.receiveCancel();
    upstream->cancel();
  }

 private:
  std::shared_ptr<Subscription> takeUpstream() {
    const std::lock_guard lock(mutex_);
    return std::exchange(upstream_, nullptr);
  }

  const std::shared_ptr<Subscriber<Output, Failure>> downstream_;
  const Handlers handlers_;
  FutexLock mutex_;
  std::shared_ptr<Subscription> upstream_;
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
    if (const auto downstream = take()) {
      downstream->receiveValue(value_);
      downstream->receiveCompletion(Completion<Failure>::finished());
    }
  }
  void cancel() override { take(); }

 private:
  AnySubscriber take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(downstream_, nullptr);
  }

  FutexLock mutex_;
  AnySubscriber downstream_;
  const Output value_;
};

}  // namespace ombrix::platform::detail

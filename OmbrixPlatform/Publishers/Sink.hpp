#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/AnyCancellable.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform::detail {

/// The subscriber behind `sink`: unlimited demand, two closures that are let go at the end.
template <class Output, class Failure>
class Sink final : public Subscriber<Output, Failure> {
 public:
  struct Handlers {
    std::function<void(const Completion<Failure>&)> receiveCompletion;
    std::function<void(const Output&)> receiveValue;
  };

  explicit Sink(Handlers handlers)
      : handlers_(std::make_shared<const Handlers>(std::move(handlers))) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    {
      const std::lock_guard lock(mutex_);
      if (handlers_ && !subscription_) {
        subscription_ = subscription;
      } else {
        isRefused_ = true;
      }
    }
    if (isRefused_) {
      subscription->cancel();
    } else {
      subscription->request(Demand::unlimited());
    }
  }

  Demand receiveValue(const Output& value) override {
    std::shared_ptr<const Handlers> handlers;
    {
      const std::lock_guard lock(mutex_);
      handlers = handlers_;
    }
    if (handlers && handlers->receiveValue) {
      callOut("a receiver of values", [&] { handlers->receiveValue(value); });
    }
    return Demand::none();
  }

  void receiveCompletion(const Completion<Failure>& completion) override {
    const auto [handlers, subscription] = release();
    if (handlers && handlers->receiveCompletion) {
      callOut("a receiver of completions", [&] { handlers->receiveCompletion(completion); });
    }
  }

  void cancel() {
    const auto [handlers, subscription] = release();
    if (subscription) subscription->cancel();
  }

 private:
  // A handler that runs meanwhile keeps itself alive.
  std::pair<std::shared_ptr<const Handlers>, std::shared_ptr<Subscription>> release() {
    const std::lock_guard lock(mutex_);
    return {std::exchange(handlers_, nullptr), std::exchange(subscription_, nullptr)};
  }

  FutexLock mutex_;
  std::shared_ptr<const Handlers> handlers_;
  std::shared_ptr<Subscription> subscription_;
  bool isRefused_ = false;  // by the one thread that delivers
};

}  // namespace ombrix::platform::detail

#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/AnyCancellable.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform::detail {

/// The subscriber behind `sink`: unlimited demand, two closures. Both are released by the
/// completion, or with this object, which its source releases when it is cancelled.
template <class Output, class Failure>
class Sink final : public Subscriber<Output, Failure> {
 public:
  struct Handlers {
    std::function<void(const Completion<Failure>&)> receiveCompletion;
    std::function<void(const Output&)> receiveValue;
  };

  explicit Sink(Handlers handlers) : handlers_(std::move(handlers)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    bool isWanted = false;
    {
      const LockGuard lock(mutex_);
      isWanted = !isOver_ && !subscription_;
      if (isWanted) subscription_ = subscription;
    }
    if (isWanted) {
      subscription->request(Demand::unlimited());
    } else {
      subscription->cancel();
    }
  }

  Demand receiveValue(const Output& value) override {
    if (!isOver_.load(std::memory_order_relaxed) && handlers_.receiveValue) {
      callOut("a receiver of values", [&] { handlers_.receiveValue(value); });
    }
    return Demand::none();
  }

  void receiveCompletion(const Completion<Failure>& completion) override {
    if (isOver_.exchange(true)) return;
    if (handlers_.receiveCompletion) {
      callOut("a receiver of completions", [&] { handlers_.receiveCompletion(completion); });
    }
    takeSubscription();
    handlers_ = {};  // only one thread delivers
  }

  void cancel() {
    isOver_ = true;
    if (const auto subscription = takeSubscription()) subscription->cancel();
  }

 private:
  std::shared_ptr<Subscription> takeSubscription() {
    const LockGuard lock(mutex_);
    return std::exchange(subscription_, nullptr);
  }

  Handlers handlers_;  // used only by the thread that delivers
  std::atomic<bool> isOver_{false};
  FutexLock mutex_;
  std::shared_ptr<Subscription> subscription_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::platform::detail

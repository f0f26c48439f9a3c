#pragma once

#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/Operators.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"

namespace ombrix::platform::detail {

/// Passes everything downstream in jobs of an executor; one job delivers all that is waiting.
template <class Output, class Failure>
class ReceiveOnSubscriber final
    : public Subscriber<Output, Failure>,
      public std::enable_shared_from_this<ReceiveOnSubscriber<Output, Failure>> {
 public:
  ReceiveOnSubscriber(std::shared_ptr<Subscriber<Output, Failure>> downstream,
                      std::shared_ptr<Executor> executor)
      : downstream_(std::move(downstream)), executor_(std::move(executor)) {}

  void receiveSubscription(std::shared_ptr<Subscription> subscription) override {
    std::shared_ptr<Subscriber<Output, Failure>> downstream;
    {
      const LockGuard lock(mutex_);
      upstream_ = std::move(subscription);
      downstream = downstream_;
    }
    downstream->receiveSubscription(
        std::make_shared<OperatorSubscription<ReceiveOnSubscriber>>(this->weak_from_this()));
  }
  Demand receiveValue(const Output& value) override {
    enqueue(value);
    return Demand::none();
  }
  void receiveCompletion(const Completion<Failure>& completion) override { enqueue(completion); }

  void request(Demand demand) {
    if (const auto upstream = upstreamNow()) upstream->request(demand);
  }
  void cancel() {
    std::shared_ptr<Subscription> upstream;
    std::shared_ptr<Subscriber<Output, Failure>> downstream;
    std::vector<Event> dropped;
    {
      const LockGuard lock(mutex_);
      upstream = std::move(upstream_);
      downstream = std::move(downstream_);
      dropped.swap(waiting_);
    }
    if (upstream) upstream->cancel();
  }

  /// The job: delivers what is waiting.
  void run() {
    std::vector<Event> batch;
    {
      const LockGuard lock(mutex_);
      batch.swap(waiting_);
    }
    for (const Event& event : batch) deliver(event);
    {
      const LockGuard lock(mutex_);
      if (waiting_.empty()) {
        isScheduled_ = false;
        return;
      }
    }
    executor_->post(OwedJob(this->shared_from_this()));
  }

  /// The executor will not run the job: the downstream can no longer be reached.
  void drop() { cancel(); }

 private:
  using Event = std::variant<Output, Completion<Failure>>;

  std::shared_ptr<Subscription> upstreamNow() {
    const LockGuard lock(mutex_);
    return upstream_;
  }

  void enqueue(Event event) {
    {
      const LockGuard lock(mutex_);
      if (!downstream_) return;
      waiting_.push_back(std::move(event));
      if (std::exchange(isScheduled_, true)) return;
    }
    executor_->post(OwedJob(this->shared_from_this()));
  }

  void deliver(const Event& event) {
    std::shared_ptr<Subscriber<Output, Failure>> downstream;
    std::shared_ptr<Subscription> released;
    {
      const LockGuard lock(mutex_);
      downstream = downstream_;
      if (event.index() == 1) {
        downstream_ = nullptr;
        released = std::move(upstream_);
      }
    }
    if (!downstream) return;
    if (const auto* value = std::get_if<0>(&event)) {
      const Demand more = downstream->receiveValue(*value);
      if (!more.isNone()) request(more);
    } else {
      downstream->receiveCompletion(std::get<1>(event));
    }
  }

  FutexLock mutex_;
  std::shared_ptr<Subscriber<Output, Failure>> downstream_ OMBRIX_GUARDED_BY(mutex_);
  const std::shared_ptr<Executor> executor_;
  std::shared_ptr<Subscription> upstream_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<Event> waiting_ OMBRIX_GUARDED_BY(mutex_);
  bool isScheduled_ OMBRIX_GUARDED_BY(mutex_) = false;
};

}  // namespace ombrix::platform::detail

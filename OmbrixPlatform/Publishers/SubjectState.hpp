#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/Operators.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"

namespace ombrix::platform::detail {

/// What both subjects share: the subscriptions, in order, and how they are served.
///
/// One lock guards it all and is never held while calling out. What each subscription gets is
/// decided under the lock, so that all subscribers see one order. A sender serves the subscriptions
/// that it finds unserved, one after the other, with its own value; for the others it leaves a copy
/// with whoever serves them.
template <class Output, class Failure>
class SubjectState final : public std::enable_shared_from_this<SubjectState<Output, Failure>> {
 public:
  using AnySubscriber = std::shared_ptr<Subscriber<Output, Failure>>;
  struct NoCall {
    void operator()() const noexcept {}
  };

  SubjectState() = default;
  explicit SubjectState(Output value) : keepsLatest_(true), value_(std::move(value)) {}

  void subscribe(AnySubscriber subscriber) {
    auto conduit = std::make_shared<Conduit>(this->shared_from_this(), subscriber);
    std::optional<Completion<Failure>> completion;
    {
      const std::lock_guard lock(mutex_);
      completion = completion_;
      if (!completion) {
        conduit->owesValue = keepsLatest_;
        conduits_.push_back(conduit);
        conduit->position = std::prev(conduits_.end());
      }
    }
    if (completion) {
      subscriber->receiveSubscription(emptySubscription());
      subscriber->receiveCompletion(*completion);
    } else {
      subscriber->receiveSubscription(conduit);
      conduit->opened();
    }
  }

  /// @param value None sends the latest one again.
  /// @param taken Called under the lock, once the value is the latest.
  template <std::invocable Taken = NoCall>
  void send(std::optional<Output> value, Taken taken = {}) {
    std::optional<Output> latest;  // then the one before it, which goes outside the lock
    if (keepsLatest_ && value) latest.emplace(*value);
    Round round;
    std::exception_ptr failure;
    {
      const std::lock_guard lock(mutex_);
      if (completion_) return;
      if (!value) value.emplace(*value_);
      if (latest) value_.swap(latest);
      taken();
      try {
        for (const auto& conduit : conduits_) conduit->offer(*value, round);
      } catch (...) {  // no memory for a copy: those that come after this one miss the value
        failure = std::current_exception();
      }
    }
    while (auto* const conduit = round.first) {
      round.first = conduit->next;
      conduit->deliver(*value);
    }
    for (const auto& conduit : round.busy) conduit->serve(true);
    if (failure) std::rethrow_exception(failure);
  }

  void send(Completion<Failure> completion) {
    std::list<std::shared_ptr<Conduit>> round;
    {
      const std::lock_guard lock(mutex_);
      if (completion_) return;
      completion_ = completion;
      round.swap(conduits_);
      for (const auto& conduit : round) conduit->end(completion);
    }
    for (const auto& conduit : round) conduit->serve();
  }

  /// Nobody can send any more: lets go of all subscribers, who may hold on to this state.
  void close() {
    std::list<std::shared_ptr<Conduit>> released;
    std::vector<AnySubscriber> subscribers;
    const std::lock_guard lock(mutex_);
    released.swap(conduits_);
    for (const auto& conduit : released) subscribers.push_back(conduit->release());
  }

  Output value() const {
    const std::lock_guard lock(mutex_);
    return *value_;
  }

  /// The state behind the handles of a subject; closed when the last of these goes.
  template <class... Value>
  static std::shared_ptr<SubjectState> make(Value&&... value) {
    const auto state = std::make_shared<SubjectState>(std::forward<Value>(value)...);
    const auto owner = std::shared_ptr<void>(nullptr, [state](void*) { state->close(); });
    return std::shared_ptr<SubjectState>(owner, state.get());
  }

 private:
  class Conduit;

  // Whom one value goes to.
  struct Round {
    Conduit* first = nullptr;  // those that its sender serves
    Conduit* last = nullptr;
    std::vector<std::shared_ptr<Conduit>> busy;  // those served by others
  };

  class Conduit final : public Subscription, public std::enable_shared_from_this<Conduit> {
   public:
    Conduit(std::shared_ptr<SubjectState> subject, AnySubscriber downstream)
        : subject_(std::move(subject)), downstream_(std::move(downstream)) {}

    /// With the lock held: enters the round if there is demand.
    void offer(const Output& value, Round& round) {
      if (demand_.isNone()) {
        owesValue = subject_->keepsLatest_;
        return;
      }
      if (!isServed_ && waiting_.empty()) {
        isServed_ = true;
        next = nullptr;
        (round.last ? round.last->next : round.first) = this;
        round.last = this;
      } else {
        waiting_.push_back(value);
        // Whoever serves it just now may leave it to this sender.
        round.busy.push_back(this->shared_from_this());
        ++senders_;
      }
      demand_.takeOne();
      owesValue = false;
    }

    /// With the lock held: the subscriber, which is served no longer. Who serves it just now keeps
    /// it, and this, until then.
    AnySubscriber release() {
      isOver_ = true;
      isListed_ = false;
      if (isServed_) served_ = this->shared_from_this();
      return isServed_ ? nullptr : std::move(downstream_);
    }

    /// With the lock held.
    void end(const Completion<Failure>& completion) {
      isListed_ = false;
      completion_ = completion;
      if (isServed_) served_ = this->shared_from_this();
    }

    /// By the sender in whose round it is: its value, then what has come meanwhile.
    void deliver(const Output& value) {
      const Demand more = isOver_.load(std::memory_order_relaxed)
                              ? Demand::none()
                              : downstream_->receiveValue(value);
      std::unique_lock lock(subject_->mutex_);
      if (!more.isNone()) addDemand(more);
      drain(lock, 1);
    }

    /// Delivers what waits, unless another call does already.
    ///
    /// @param isSender For a value that it has offered.
    void serve(bool isSender = false) {
      std::unique_lock lock(subject_->mutex_);
      if (isSender) --senders_;
      if (std::exchange(isServed_, true)) return;
      drain(lock, 0);
    }

    /// The subscriber has its subscription: from now on values may follow.
    void opened() {
      std::unique_lock lock(subject_->mutex_);
      drain(lock, 0);
    }

    void request(Demand demand) override {
      {
        const std::lock_guard lock(subject_->mutex_);
        if (isOver_) return;
        addDemand(demand);
      }
      serve();
    }

    void cancel() override {
      AnySubscriber released;
      std::vector<Output> dropped;
      std::shared_ptr<Conduit> self;
      const std::lock_guard lock(subject_->mutex_);
      if (isOver_) return;
      dropped.swap(waiting_);
      if (isListed_) {
        self = std::move(*position);
        subject_->conduits_.erase(position);
      }
      released = release();
    }

    bool owesValue = false;  // the current value was not delivered for want of demand
    typename std::list<std::shared_ptr<Conduit>>::iterator position;
    Conduit* next = nullptr;  // in the round of whoever serves it

   private:
    void addDemand(Demand demand) {
      demand_ += demand;
      if (owesValue && !isOver_ && demand_.takeOne()) {
        owesValue = false;
        waiting_.push_back(*subject_->value_);
      }
    }

    // With the lock held, by whoever serves it. It may be gone afterwards.
    void drain(std::unique_lock<FutexLock>& lock, std::size_t delivered) {
      if (waiting_.empty() && !completion_ && !isOver_) [[likely]] {
        isServed_ = false;
        lock.unlock();
      } else {
        drainWaiting(lock, delivered);
      }
    }

    // After a turn of so many values it leaves the rest to a sender, if there is one: a sender that
    // never pauses serves itself.
    void drainWaiting(std::unique_lock<FutexLock>& lock, std::size_t delivered) {
      std::vector<Output> batch;
      while (!isOver_ && (!waiting_.empty() || completion_)) {
        if (delivered >= kValuesPerTurn && senders_ > 0) break;
        if (waiting_.empty()) {
          isOver_ = true;
          lock.unlock();
          downstream_->receiveCompletion(*completion_);
          lock.lock();
          break;
        }
        batch.swap(waiting_);
        delivered += batch.size();
        lock.unlock();
        for (const Output& value : batch) {
          if (isOver_) break;
          const Demand more = downstream_->receiveValue(value);
          if (more.isNone()) continue;
          const std::lock_guard relock(subject_->mutex_);
          addDemand(more);
        }
        batch.clear();
        lock.lock();
      }
      const AnySubscriber released = isOver_ ? std::move(downstream_) : nullptr;
      const auto self = std::move(served_);
      isServed_ = false;
      lock.unlock();
    }

    static constexpr std::size_t kValuesPerTurn = 64;

    const std::shared_ptr<SubjectState> subject_;
    std::size_t senders_ = 0;   // that have offered a value and are going to serve
    AnySubscriber downstream_;  // left alone by all others while it is served
    Demand demand_ = Demand::none();
    std::vector<Output> waiting_;
    std::optional<Completion<Failure>> completion_;
    std::shared_ptr<Conduit> served_;  // itself, when only who serves it keeps it
    bool isListed_ = true;
    bool isServed_ = true;             // until the subscriber was given this subscription
    std::atomic<bool> isOver_{false};  // cancelled, completed, or its subject is gone
  };

  mutable FutexLock mutex_;
  const bool keepsLatest_ = false;
  std::optional<Output> value_;
  std::list<std::shared_ptr<Conduit>> conduits_;
  std::optional<Completion<Failure>> completion_;
};

}  // namespace ombrix::platform::detail

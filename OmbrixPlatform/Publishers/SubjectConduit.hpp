#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <list>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"

namespace ombrix::platform::detail {

template <class Output, class Failure>
class SubjectConduit;

/// The state that a subject shares with its subscriptions.
template <class Output, class Failure>
struct SubjectCore {
  explicit SubjectCore(std::optional<Output> first)
      : keepsLatest(first.has_value()), latest(std::move(first)) {}

  const bool keepsLatest;
  mutable FutexLock mutex;  // of its subscriptions too; never held calling out
  std::optional<Output> latest OMBRIX_GUARDED_BY(mutex);
  // In order of subscribing.
  std::list<std::shared_ptr<SubjectConduit<Output, Failure>>> conduits OMBRIX_GUARDED_BY(mutex);
};

/// The subscriptions that one value goes to. Guarded by the lock while it has claims.
template <class Output, class Failure>
struct SubjectRound {
  using Conduit = SubjectConduit<Output, Failure>;

  void claim(Conduit* conduit) {
    conduit->round = this;
    conduit->previous = std::exchange(last, conduit);
    (conduit->previous ? conduit->previous->next : first) = conduit;
  }
  void release(Conduit* conduit) {
    (conduit->previous ? conduit->previous->next : first) = conduit->next;
    (conduit->next ? conduit->next->previous : last) = conduit->previous;
    conduit->round = nullptr;
    conduit->next = nullptr;
  }
  /// Takes the next claimed subscription and marks it as served; null after the last one.
  Conduit* beginNext() {
    Conduit* const conduit = first;
    if (conduit) {
      release(conduit);
      conduit->isServed = true;
    }
    return conduit;
  }

  const Output* value = nullptr;
  Conduit* first = nullptr;  // those that its sender will serve
  Conduit* last = nullptr;
  std::vector<std::shared_ptr<Conduit>> busy;  // those that other calls may be serving
  std::exception_ptr failure;                  // the first one
};

/// One subscription of a subject.
template <class Output, class Failure>
class SubjectConduit final : public Subscription,
                             public std::enable_shared_from_this<SubjectConduit<Output, Failure>> {
 public:
  using AnySubscriber = std::shared_ptr<Subscriber<Output, Failure>>;
  using Core = SubjectCore<Output, Failure>;
  using Round = SubjectRound<Output, Failure>;

  SubjectConduit(std::shared_ptr<Core> subject, AnySubscriber downstream)
      : subject_(std::move(subject)), downstream_(std::move(downstream)) {}

  // The three that follow are not checked: they are called with the lock held, which the subject
  // knows by another name.

  /// Enters the round if there is demand.
  void offer(Round& to) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    if (demand_.isNone()) {
      owesValue = subject_->keepsLatest;
      return;
    }
    if (!isServed && !round && waiting_.empty()) {
      to.claim(this);
    } else {
      takeOverClaim();
      willServe(to);  // the call that serves it now may leave the value to this sender
      waiting_.push_back(*to.value);
    }
    demand_.takeOne();
    owesValue = false;
  }

  /// Ends the delivery and returns the subscriber. If a call serves it now, that call keeps the
  /// subscriber and this object alive instead.
  AnySubscriber release() OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    isOver_ = true;
    isListed_ = false;
    if (round) round->release(this);
    if (isServed) kept_ = this->shared_from_this();
    return isServed ? nullptr : std::move(downstream_);
  }

  void end(const Completion<Failure>& completion) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    isListed_ = false;
    completion_ = completion;
    if (isServed || round) kept_ = this->shared_from_this();
  }

  /// Called by the sender that claimed it: delivers the sender's value, then those that arrived
  /// meanwhile. Returns the round's next subscription, already marked as served.
  SubjectConduit* deliver(Round& own) noexcept {
    Demand more = Demand::none();
    if (!isOver_.load(std::memory_order_relaxed)) more = pass(*own.value, own.failure);
    Leaving leaving;
    const LockGuard lock(subject_->mutex);
    if (!more.isNone()) addDemand(more, own.failure);
    return drain(leaving, 1, own.failure, &own);
  }

  /// Delivers what is waiting, unless another call is already delivering.
  ///
  /// @param failure Receives the subscriber's first exception.
  /// @param isSender Whether the caller is a sender that offered a value.
  void serve(std::exception_ptr& failure, bool isSender = false) {
    Leaving leaving;
    const LockGuard lock(subject_->mutex);
    if (isSender) --senders_;
    if (isServed) return;
    if (round) {
      if (waiting_.empty() && !completion_) return;  // its sender delivers the value
      try {
        takeOverClaim();
      } catch (...) {
        return;  // out of memory: its sender delivers it and what follows
      }
    }
    isServed = true;
    drain(leaving, 0, failure);
  }

  /// The subscriber has received its subscription: from now on values may be delivered.
  void opened() {
    std::exception_ptr failure;
    {
      Leaving leaving;
      const LockGuard lock(subject_->mutex);
      drain(leaving, 0, failure);
    }
    if (failure) std::rethrow_exception(failure);
  }

  void request(Demand demand) override {
    std::exception_ptr failure;
    {
      const LockGuard lock(subject_->mutex);
      if (isOver_) return;
      addDemand(demand, failure);
    }
    serve(failure);
    if (failure) std::rethrow_exception(failure);
  }

  void cancel() override {
    AnySubscriber released;
    std::vector<Output> dropped;
    std::shared_ptr<SubjectConduit> self;
    const LockGuard lock(subject_->mutex);
    if (isOver_) return;
    dropped.swap(waiting_);
    if (isListed_) {
      self = std::move(*position);
      subject_->conduits.erase(position);
    } else if (!isServed) {
      self = std::move(kept_);
    }
    released = release();
  }

  bool owesValue = false;  // the current value was not delivered for lack of demand
  typename std::list<std::shared_ptr<SubjectConduit>>::iterator position;
  bool isServed = true;    // at first, until the subscriber has this subscription
  Round* round = nullptr;  // of the sender that claimed it, until it serves it
  SubjectConduit* previous = nullptr;
  SubjectConduit* next = nullptr;

 private:
  // Destroyed after the lock is released; the object itself may be among it.
  struct Leaving {
    AnySubscriber subscriber;
    std::shared_ptr<SubjectConduit> self;
  };

  // Moves the value of a sender that has not reached it yet to the front of the waiting ones. That
  // sender serves it at its end, too.
  void takeOverClaim() OMBRIX_REQUIRES(subject_->mutex) {
    if (!round) return;
    willServe(*round);
    waiting_.insert(waiting_.begin(), *round->value);
    round->release(this);
  }

  void willServe(Round& sender) OMBRIX_REQUIRES(subject_->mutex) {
    sender.busy.push_back(this->shared_from_this());
    ++senders_;
  }

  // Keeps the first exception: one thrown out of a round would lose the values of others.
  static void guarded(std::exception_ptr& failure, auto&& closure) noexcept {
    try {
      closure();
    } catch (...) {
      if (!failure) failure = std::current_exception();
    }
  }

  Demand pass(const Output& value, std::exception_ptr& failure) noexcept {
    Demand more = Demand::none();
    guarded(failure, [&] { more = downstream_->receiveValue(value); });
    return more;
  }

  void addDemand(Demand demand, std::exception_ptr& failure) noexcept
      OMBRIX_REQUIRES(subject_->mutex) {
    demand_ += demand;
    if (!owesValue || isOver_ || demand_.isNone()) return;
    try {
      waiting_.push_back(*subject_->latest);
    } catch (...) {
      if (!failure) failure = std::current_exception();
      return;
    }
    demand_.takeOne();
    owesValue = false;
  }

  // Called by the call that serves it, as its last step under the lock. It may be destroyed once
  // the lock is released.
  SubjectConduit* drain(Leaving& leaving, std::size_t delivered, std::exception_ptr& failure,
                        Round* own = nullptr) noexcept OMBRIX_REQUIRES(subject_->mutex) {
    if (!waiting_.empty() || completion_ || isOver_) [[unlikely]] {
      drainWaiting(delivered, failure);
      if (isOver_) leaving.subscriber = std::move(downstream_);
      leaving.self = std::move(kept_);
    }
    isServed = false;
    return own ? own->beginNext() : nullptr;
  }

  // After `kValuesPerTurn` values, leaves the rest to a waiting sender, if there is one: a sender
  // that never pauses then serves its own values.
  void drainWaiting(std::size_t delivered, std::exception_ptr& failure)
      OMBRIX_REQUIRES(subject_->mutex) {
    std::vector<Output> batch;
    while (!isOver_ && (!waiting_.empty() || completion_)) {
      if (delivered >= kValuesPerTurn && senders_ > 0) break;
      if (waiting_.empty()) {
        isOver_ = true;
        const auto& completion = *completion_;  // which stays as it is
        const UnlockGuard unlocked(subject_->mutex);
        guarded(failure, [&] { downstream_->receiveCompletion(completion); });
        break;
      }
      batch.swap(waiting_);
      delivered += batch.size();
      const UnlockGuard unlocked(subject_->mutex);
      for (const Output& value : batch) {
        if (isOver_) break;
        const Demand more = pass(value, failure);
        if (more.isNone()) continue;
        const LockGuard relock(subject_->mutex);
        addDemand(more, failure);
      }
      batch.clear();
    }
  }

  static constexpr std::size_t kValuesPerTurn = 64;

  const std::shared_ptr<Core> subject_;
  // Those that offered a value and will serve.
  std::size_t senders_ OMBRIX_GUARDED_BY(subject_->mutex) = 0;
  AnySubscriber downstream_;  // used only by the call that serves it
  Demand demand_ OMBRIX_GUARDED_BY(subject_->mutex) = Demand::none();
  std::vector<Output> waiting_ OMBRIX_GUARDED_BY(subject_->mutex);
  std::optional<Completion<Failure>> completion_ OMBRIX_GUARDED_BY(subject_->mutex);
  // Itself, while only the serving call holds it.
  std::shared_ptr<SubjectConduit> kept_ OMBRIX_GUARDED_BY(subject_->mutex);
  bool isListed_ OMBRIX_GUARDED_BY(subject_->mutex) = true;
  std::atomic<bool> isOver_{false};  // cancelled, completed, or its subject was destroyed
};

}  // namespace ombrix::platform::detail

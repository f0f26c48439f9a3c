#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"

namespace ombrix::platform::detail {

template <class Output, class Failure>
class SubjectConduit;

/// What a subject shares with its subscriptions.
template <class Output, class Failure>
struct SubjectCore {
  explicit SubjectCore(std::optional<Output> first)
      : keepsLatest(first.has_value()), latest(std::move(first)) {}

  const bool keepsLatest;
  mutable FutexLock mutex;  // guards what follows, and its subscriptions; never held calling out
  std::optional<Output> latest;
  std::list<std::shared_ptr<SubjectConduit<Output, Failure>>> conduits;  // in order
};

/// Whom one value goes to. Guarded by the lock as long as it has claims.
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
  /// The next one of those claimed, which from now on is served; null behind the last one.
  Conduit* beginNext() {
    Conduit* const conduit = first;
    if (conduit) {
      release(conduit);
      conduit->isServed = true;
    }
    return conduit;
  }

  const Output* value = nullptr;
  Conduit* first = nullptr;  // those that its sender is going to serve
  Conduit* last = nullptr;
  std::vector<std::shared_ptr<Conduit>> busy;  // those that others may be serving
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

  /// With the lock held: enters the round if there is demand.
  void offer(Round& to) {
    if (demand_.isNone()) {
      owesValue = subject_->keepsLatest;
      return;
    }
    if (!isServed && !round && waiting_.empty()) {
      to.claim(this);
    } else {
      takeOverClaim();
      willServe(to);  // whoever serves it just now may leave it to this sender
      waiting_.push_back(*to.value);
    }
    demand_.takeOne();
    owesValue = false;
  }

  /// With the lock held: the subscriber, which is served no longer. Who serves it just now keeps
  /// it, and this, until then.
  AnySubscriber release() {
    isOver_ = true;
    isListed_ = false;
    if (round) round->release(this);
    if (isServed) kept_ = this->shared_from_this();
    return isServed ? nullptr : std::move(downstream_);
  }

  /// With the lock held.
  void end(const Completion<Failure>& completion) {
    isListed_ = false;
    completion_ = completion;
    if (isServed || round) kept_ = this->shared_from_this();
  }

  /// By the sender whose claim it was: its value, then what has come meanwhile. Gives the next
  /// one of the round, which it begins in the same hold of the lock.
  SubjectConduit* deliver(Round& own) noexcept {
    Demand more = Demand::none();
    if (!isOver_.load(std::memory_order_relaxed)) more = pass(*own.value, own.failure);
    std::unique_lock lock(subject_->mutex);
    if (!more.isNone()) addDemand(more, own.failure);
    return drain(lock, 1, own.failure, &own);
  }

  /// Delivers what waits, unless another call does already.
  ///
  /// @param failure Takes the first exception of the subscriber.
  /// @param isSender For a value that it has offered.
  void serve(std::exception_ptr& failure, bool isSender = false) {
    std::unique_lock lock(subject_->mutex);
    if (isSender) --senders_;
    if (isServed) return;
    if (round) {
      if (waiting_.empty() && !completion_) return;  // the value comes with its sender
      try {
        takeOverClaim();
      } catch (...) {
        return;  // no memory: its sender brings it, and what waits behind it
      }
    }
    isServed = true;
    drain(lock, 0, failure);
  }

  /// The subscriber has its subscription: from now on values may follow.
  void opened() {
    std::exception_ptr failure;
    {
      std::unique_lock lock(subject_->mutex);
      drain(lock, 0, failure);
    }
    if (failure) std::rethrow_exception(failure);
  }

  void request(Demand demand) override {
    std::exception_ptr failure;
    {
      const std::lock_guard lock(subject_->mutex);
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
    const std::lock_guard lock(subject_->mutex);
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

  bool owesValue = false;  // the current value was not delivered for want of demand
  typename std::list<std::shared_ptr<SubjectConduit>>::iterator position;
  bool isServed = true;    // at first until the subscriber was given this subscription
  Round* round = nullptr;  // of the sender who has claimed it and has not yet come to it
  SubjectConduit* previous = nullptr;
  SubjectConduit* next = nullptr;

 private:
  // With the lock held: the value that a sender has not yet come to deliver is the first of those
  // that wait. That sender, too, serves it at its end.
  void takeOverClaim() {
    if (!round) return;
    willServe(*round);
    waiting_.insert(waiting_.begin(), *round->value);
    round->release(this);
  }

  void willServe(Round& sender) {
    sender.busy.push_back(this->shared_from_this());
    ++senders_;
  }

  // Keeps the first exception: one that left a round half done would lose the values of others.
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

  void addDemand(Demand demand, std::exception_ptr& failure) noexcept {
    demand_ += demand;
    if (!owesValue || isOver_ || demand_.isNone()) return;
    guarded(failure, [&] {
      waiting_.push_back(*subject_->latest);
      demand_.takeOne();
      owesValue = false;
    });
  }

  // With the lock held, which it gives back, by whoever serves it. It may be gone afterwards.
  SubjectConduit* drain(std::unique_lock<FutexLock>& lock, std::size_t delivered,
                        std::exception_ptr& failure, Round* own = nullptr) noexcept {
    AnySubscriber released;
    std::shared_ptr<SubjectConduit> self;
    if (!waiting_.empty() || completion_ || isOver_) [[unlikely]] {
      drainWaiting(lock, delivered, failure);
      if (isOver_) released = std::move(downstream_);
      self = std::move(kept_);
    }
    isServed = false;
    SubjectConduit* const following = own ? own->beginNext() : nullptr;
    lock.unlock();
    return following;
  }

  // After a turn of so many values it leaves the rest to a sender, if there is one: a sender that
  // never pauses serves itself.
  void drainWaiting(std::unique_lock<FutexLock>& lock, std::size_t delivered,
                    std::exception_ptr& failure) {
    std::vector<Output> batch;
    while (!isOver_ && (!waiting_.empty() || completion_)) {
      if (delivered >= kValuesPerTurn && senders_ > 0) break;
      if (waiting_.empty()) {
        isOver_ = true;
        lock.unlock();
        guarded(failure, [&] { downstream_->receiveCompletion(*completion_); });
        lock.lock();
        break;
      }
      batch.swap(waiting_);
      delivered += batch.size();
      lock.unlock();
      for (const Output& value : batch) {
        if (isOver_) break;
        const Demand more = pass(value, failure);
        if (more.isNone()) continue;
        const std::lock_guard relock(subject_->mutex);
        addDemand(more, failure);
      }
      batch.clear();
      lock.lock();
    }
  }

  static constexpr std::size_t kValuesPerTurn = 64;

  const std::shared_ptr<Core> subject_;
  std::size_t senders_ = 0;   // that have offered a value and are going to serve
  AnySubscriber downstream_;  // left alone by all others while it is served
  Demand demand_ = Demand::none();
  std::vector<Output> waiting_;
  std::optional<Completion<Failure>> completion_;
  std::shared_ptr<SubjectConduit> kept_;  // itself, when only who serves it keeps it
  bool isListed_ = true;
  std::atomic<bool> isOver_{false};  // cancelled, completed, or its subject is gone
};

}  // namespace ombrix::platform::detail

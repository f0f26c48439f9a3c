#pragma once

#include <concepts>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix::platform {

namespace detail {

/// What both subjects share: the subscriptions, in order, and how they are served.
///
/// One lock guards it all and is never held while calling out. Values are put into each
/// subscription's list under the lock, so that all subscribers see one order; then whoever finds a
/// subscription unserved delivers its list, one thread at a time.
template <class Output, class Failure>
class SubjectState final : public std::enable_shared_from_this<SubjectState<Output, Failure>> {
 public:
  using AnySubscriber = std::shared_ptr<Subscriber<Output, Failure>>;

  SubjectState() = default;
  explicit SubjectState(Output value) : value_(std::move(value)) {}

  void subscribe(AnySubscriber subscriber) {
    auto conduit = std::make_shared<Conduit>(this->shared_from_this(), subscriber);
    std::optional<Completion<Failure>> completion;
    {
      const std::lock_guard lock(mutex_);
      completion = completion_;
      if (!completion) {
        conduit->owesValue = value_.has_value();
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

  void send(Output value) {
    send(std::move(value), [] {});
  }

  /// @param taken Called under the lock, once the value is the latest.
  template <std::invocable Taken>
  void send(Output value, Taken taken) {
    std::vector<std::shared_ptr<Conduit>> round;
    {
      const std::lock_guard lock(mutex_);
      if (completion_) return;
      round.reserve(conduits_.size());
      for (const auto& conduit : conduits_) {
        if (conduit->offer(value, value_.has_value())) round.push_back(conduit);
      }
      if (value_) std::swap(*value_, value);
      taken();
    }
    for (const auto& conduit : round) conduit->serve(true);
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
  class Conduit final : public Subscription, public std::enable_shared_from_this<Conduit> {
   public:
    Conduit(std::shared_ptr<SubjectState> subject, AnySubscriber downstream)
        : subject_(std::move(subject)), downstream_(std::move(downstream)) {}

    /// With the lock held: takes the value if there is demand; true when the sender has to serve it
    /// then, which whoever delivers just now may leave to it.
    bool offer(const Output& value, bool keepsLatest) {
      if (!demand_.takeOne()) {
        owesValue = keepsLatest;
        return false;
      }
      owesValue = false;
      waiting_.push_back(value);
      ++senders_;
      return true;
    }

    /// With the lock held: the subscriber, which is served no longer.
    AnySubscriber release() {
      isListed_ = false;
      return std::exchange(downstream_, nullptr);
    }

    /// With the lock held.
    void end(const Completion<Failure>& completion) {
      isListed_ = false;
      completion_ = completion;
    }

    /// Delivers what waits, unless another call does already. After a turn of so many values it
    /// leaves the rest to a sender, if there is one: a sender that never pauses serves itself.
    ///
    /// @param isSender For a value that it has offered.
    void serve(bool isSender = false) {
      // Declared before the lock: what they hold is released after it.
      AnySubscriber downstream;
      std::vector<Output> batch;
      std::unique_lock lock(subject_->mutex_);
      if (isSender) --senders_;
      if (isServed_) return;
      isServed_ = true;
      std::size_t delivered = 0;
      while (downstream_ && (!waiting_.empty() || completion_)) {
        if (delivered >= kValuesPerTurn && senders_ > 0) break;
        downstream = downstream_;
        if (waiting_.empty()) {
          downstream_ = nullptr;
          lock.unlock();
          downstream->receiveCompletion(*completion_);
          lock.lock();
          break;
        }
        batch.swap(waiting_);
        delivered += batch.size();
        for (const Output& value : batch) {
          if (!downstream_) break;
          lock.unlock();
          const Demand more = downstream->receiveValue(value);
          lock.lock();
          addDemand(more);
        }
        lock.unlock();
        batch.clear();
        lock.lock();
      }
      isServed_ = false;
    }

    /// The subscriber has its subscription: from now on values may follow.
    void opened() {
      {
        const std::lock_guard lock(subject_->mutex_);
        isServed_ = false;
      }
      serve();
    }

    void request(Demand demand) override {
      {
        const std::lock_guard lock(subject_->mutex_);
        if (!downstream_) return;
        addDemand(demand);
      }
      serve();
    }

    void cancel() override {
      AnySubscriber released;
      std::vector<Output> dropped;
      std::shared_ptr<Conduit> self;
      const std::lock_guard lock(subject_->mutex_);
      if (!downstream_) return;
      released = std::move(downstream_);
      dropped.swap(waiting_);
      if (std::exchange(isListed_, false)) {
        self = std::move(*position);
        subject_->conduits_.erase(position);
      }
    }

    bool owesValue = false;  // the current value was not delivered for want of demand
    typename std::list<std::shared_ptr<Conduit>>::iterator position;

   private:
    void addDemand(Demand demand) {
      demand_ += demand;
      if (owesValue && downstream_ && demand_.takeOne()) {
        owesValue = false;
        waiting_.push_back(*subject_->value_);
      }
    }

    static constexpr std::size_t kValuesPerTurn = 64;

    const std::shared_ptr<SubjectState> subject_;
    std::size_t senders_ = 0;  // that have offered a value and are going to serve
    AnySubscriber downstream_;
    Demand demand_ = Demand::none();
    std::vector<Output> waiting_;
    std::optional<Completion<Failure>> completion_;
    bool isListed_ = true;
    bool isServed_ = true;  // until the subscriber was given this subscription
  };

  mutable FutexLock mutex_;
  std::optional<Output> value_;
  std::list<std::shared_ptr<Conduit>> conduits_;
  std::optional<Completion<Failure>> completion_;
};

}  // namespace detail

/// Passes on what is sent; a subscriber without demand misses it. Copies are the same subject.
///
/// Any thread. Delivery happens inside `send` on the sending thread, except that a value sent while
/// another thread (or this one, further out) is delivering to the same subscriber is delivered by
/// that one, right after. Subscribing and cancelling are legal meanwhile; new subscribers see the
/// next value first.
template <class Output, class Failure>
class PassthroughSubject final
    : public PublisherOperators<PassthroughSubject<Output, Failure>, Output, Failure> {
 public:
  PassthroughSubject() : state_(detail::SubjectState<Output, Failure>::make()) {}

  void send(Output value) const { state_->send(std::move(value)); }

  /// Ends it for every subscriber, also later ones; nothing is delivered after that.
  void sendCompletion(Completion<Failure> completion) const { state_->send(std::move(completion)); }

  void receive(std::shared_ptr<Subscriber<Output, Failure>> subscriber) const {
    state_->subscribe(std::move(subscriber));
  }

 private:
  std::shared_ptr<detail::SubjectState<Output, Failure>> state_;
};

/// Keeps its latest value and starts every subscriber with it; one without demand gets the latest
/// value, not those in between, when it asks again. Copies are the same subject. Otherwise like
/// `PassthroughSubject`.
template <class Output, class Failure>
class CurrentValueSubject final
    : public PublisherOperators<CurrentValueSubject<Output, Failure>, Output, Failure> {
 public:
  explicit CurrentValueSubject(Output value)
      : state_(detail::SubjectState<Output, Failure>::make(std::move(value))) {}

  /// A copy of the latest value, also after the end.
  [[nodiscard]] Output value() const { return state_->value(); }
  void setValue(Output value) const { state_->send(std::move(value)); }

  /// The same, and calls `taken` at the moment from which this value is the latest, before any
  /// later one is: it must neither block nor call the subject.
  template <std::invocable Taken>
  void setValue(Output value, Taken taken) const {
    state_->send(std::move(value), std::move(taken));
  }

  void send(Output value) const { state_->send(std::move(value)); }
  void sendCompletion(Completion<Failure> completion) const { state_->send(std::move(completion)); }

  void receive(std::shared_ptr<Subscriber<Output, Failure>> subscriber) const {
    state_->subscribe(std::move(subscriber));
  }

 private:
  std::shared_ptr<detail::SubjectState<Output, Failure>> state_;
};

}  // namespace ombrix::platform

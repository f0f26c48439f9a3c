#pragma once

#include <concepts>
#include <exception>
#include <iterator>
#include <list>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/LockGuard.hpp"
#include "OmbrixPlatform/Publishers/Operators.hpp"
#include "OmbrixPlatform/Publishers/SubjectConduit.hpp"

namespace ombrix::platform::detail {

/// The shared part of both subjects: the subscriptions, in order, and how values reach them.
///
/// One lock guards it all and is never held while calling out. Values are assigned to subscriptions
/// under the lock, so that all subscribers see one order. A sender claims the idle subscriptions
/// and delivers its value to them one after the other; for the others it leaves a copy with the
/// call that is delivering. Another sender takes over a claim that has not been reached yet: a slow
/// subscriber holds up only the sender that delivers to it.
template <class Output, class Failure>
class SubjectState final : public SubjectCore<Output, Failure>,
                           public std::enable_shared_from_this<SubjectState<Output, Failure>> {
  using Core = SubjectCore<Output, Failure>;
  using Conduit = SubjectConduit<Output, Failure>;
  using Core::conduits;
  using Core::keepsLatest;
  using Core::latest;
  using Core::mutex;

 public:
  using AnySubscriber = std::shared_ptr<Subscriber<Output, Failure>>;
  struct NoCall {
    void operator()() const noexcept {}
  };

  explicit SubjectState(std::optional<Output> first = std::nullopt) : Core(std::move(first)) {}

  void subscribe(AnySubscriber subscriber) {
    auto conduit = std::make_shared<Conduit>(this->shared_from_this(), subscriber);
    std::optional<Completion<Failure>> completion;
    {
      const LockGuard lock(mutex);
      completion = completion_;
      if (!completion) {
        conduit->owesValue = keepsLatest;
        conduits.push_back(conduit);
        conduit->position = std::prev(conduits.end());
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

  /// @param value Empty to send the latest one again.
  /// @param taken Called under the lock, once the value is the latest.
  template <std::invocable Taken = NoCall>
  void send(std::optional<Output> value, Taken taken = {}) {
    std::optional<Output> kept;  // afterwards the previous value, destroyed without the lock
    if (keepsLatest && value) kept.emplace(*value);
    SubjectRound<Output, Failure> round;
    Conduit* conduit = nullptr;
    {
      const LockGuard lock(mutex);
      if (completion_) return;
      if (!value) value.emplace(*latest);
      if (kept) latest.swap(kept);
      taken();
      round.value = &*value;
      try {
        for (const auto& each : conduits) each->offer(round);
      } catch (...) {  // out of memory for a copy: the remaining subscribers miss the value
        round.failure = std::current_exception();
      }
      conduit = round.beginNext();
    }
    while (conduit) conduit = conduit->deliver(round);
    for (const auto& busy : round.busy) busy->serve(round.failure, true);
    if (round.failure) std::rethrow_exception(round.failure);
  }

  void send(Completion<Failure> completion) {
    std::list<std::shared_ptr<Conduit>> round;
    {
      const LockGuard lock(mutex);
      if (completion_) return;
      completion_ = completion;
      round.swap(conduits);
      for (const auto& conduit : round) conduit->end(completion);
    }
    std::exception_ptr failure;
    for (const auto& conduit : round) conduit->serve(failure);
    if (failure) std::rethrow_exception(failure);
  }

  /// No sender is left: releases all subscribers, which may hold on to this state.
  void close() {
    std::list<std::shared_ptr<Conduit>> released;
    std::vector<AnySubscriber> subscribers;
    const LockGuard lock(mutex);
    released.swap(conduits);
    for (const auto& conduit : released) subscribers.push_back(conduit->release());
  }

  Output value() const {
    const LockGuard lock(mutex);
    return *latest;
  }

  /// The state behind the handles of a subject; closed when the last handle is destroyed.
  template <class... Value>
  static std::shared_ptr<SubjectState> make(Value&&... value) {
    const auto state = std::make_shared<SubjectState>(std::forward<Value>(value)...);
    const auto owner = std::shared_ptr<void>(nullptr, [state](void*) { state->close(); });
    return std::shared_ptr<SubjectState>(owner, state.get());
  }

 private:
  std::optional<Completion<Failure>> completion_ OMBRIX_GUARDED_BY(mutex);
};

}  // namespace ombrix::platform::detail

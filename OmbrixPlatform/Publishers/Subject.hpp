#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"
#include "OmbrixPlatform/Publishers/SubjectState.hpp"

namespace ombrix::platform {

/// Passes on what is sent; a subscriber without demand misses it. Copies are the same subject.
///
/// Any thread. Delivery happens inside `send` on the sending thread, except that a value sent while
/// another thread (or this one, further out) is delivering to the same subscriber is delivered by
/// that one, right after. A subscriber that takes its time holds up the sender that delivers to it,
/// no other one. Subscribing and cancelling are legal meanwhile; new subscribers see the
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
  /// Sends the latest value once more; a newer one that is sent meanwhile stays the latest.
  void sendAgain() const { state_->send(std::optional<Output>()); }
  void sendCompletion(Completion<Failure> completion) const { state_->send(std::move(completion)); }

  void receive(std::shared_ptr<Subscriber<Output, Failure>> subscriber) const {
    state_->subscribe(std::move(subscriber));
  }

 private:
  std::shared_ptr<detail::SubjectState<Output, Failure>> state_;
};

}  // namespace ombrix::platform

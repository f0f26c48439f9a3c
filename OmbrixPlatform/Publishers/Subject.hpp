#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"
#include "OmbrixPlatform/Publishers/SubjectState.hpp"

namespace ombrix::platform {

/// Passes on each value; a subscriber without demand misses it. Copies are the same subject.
///
/// Any thread. `send` delivers on the calling thread. If another thread (or an outer call on
/// this one) is delivering to the same subscriber, that call delivers the value right
/// afterwards instead. A slow subscriber holds up only the sender that is delivering to it.
/// Subscribing and cancelling are allowed meanwhile; a new subscriber gets the next value
/// first.
///
///     PassthroughSubject<int, Never> rides;
///     const auto cancellable = rides.sink([](int number) { ... });
///     rides.send(1);
template <class Output, class Failure>
class PassthroughSubject final
    : public PublisherOperators<PassthroughSubject<Output, Failure>, Output, Failure> {
 public:
  PassthroughSubject() : state_(detail::SubjectState<Output, Failure>::make()) {}

  void send(Output value) const { state_->send(std::move(value)); }

  /// Ends it for every subscriber, including later ones; nothing is delivered after that.
  void sendCompletion(Completion<Failure> completion) const { state_->send(std::move(completion)); }

  void receive(std::shared_ptr<Subscriber<Output, Failure>> subscriber) const {
    state_->subscribe(std::move(subscriber));
  }

 private:
  std::shared_ptr<detail::SubjectState<Output, Failure>> state_;
};

/// Keeps its latest value and starts every subscriber with it; a subscriber without demand gets the
/// latest value, not those in between, when it requests again. Copies are the same subject.
/// Otherwise like `PassthroughSubject`.
template <class Output, class Failure>
class CurrentValueSubject final
    : public PublisherOperators<CurrentValueSubject<Output, Failure>, Output, Failure> {
 public:
  explicit CurrentValueSubject(Output value)
      : state_(detail::SubjectState<Output, Failure>::make(std::move(value))) {}

  /// A copy of the latest value, also after completion.
  [[nodiscard]] Output value() const { return state_->value(); }
  void setValue(Output value) const { state_->send(std::move(value)); }

  /// The same, but calls `taken` when this value has become the latest, before any later one does:
  /// it must neither block nor call the subject.
  template <std::invocable Taken>
  void setValue(Output value, Taken taken) const {
    state_->send(std::move(value), std::move(taken));
  }

  void send(Output value) const { state_->send(std::move(value)); }
  /// Sends the latest value once more; a newer value sent meanwhile stays the latest.
  void sendAgain() const { state_->send(std::optional<Output>()); }
  void sendCompletion(Completion<Failure> completion) const { state_->send(std::move(completion)); }

  void receive(std::shared_ptr<Subscriber<Output, Failure>> subscriber) const {
    state_->subscribe(std::move(subscriber));
  }

 private:
  std::shared_ptr<detail::SubjectState<Output, Failure>> state_;
};

}  // namespace ombrix::platform

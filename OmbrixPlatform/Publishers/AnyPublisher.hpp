#pragma once

#include <concepts>
#include <exception>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Publishers/AnyCancellable.hpp"
#include "OmbrixPlatform/Publishers/Operators.hpp"
#include "OmbrixPlatform/Publishers/Publisher.hpp"
#include "OmbrixPlatform/Publishers/ReceiveOn.hpp"
#include "OmbrixPlatform/Publishers/Sink.hpp"

namespace ombrix::platform {

template <class Output, class Failure>
class AnyPublisher;

/// The handlers that `handleEvents` calls; each is optional.
template <class Output, class Failure>
struct EventHandlers {
  std::function<void()> receiveSubscription = nullptr;
  std::function<void(const Output&)> receiveOutput = nullptr;
  std::function<void(const Completion<Failure>&)> receiveCompletion = nullptr;
  std::function<void()> receiveCancel = nullptr;
  std::function<void(Demand)> receiveRequest = nullptr;
};

/// The operators, for every publisher type that derives from it with its own type, output and
/// failure. Handlers run on the thread on which the source delivers, until `receiveOn`.
template <class Self, class OutputType, class FailureType>
class PublisherOperators {
 public:
  using Output = OutputType;
  using Failure = FailureType;
  using AnySubscriber = std::shared_ptr<Subscriber<Output, Failure>>;

  [[nodiscard]] AnyPublisher<Output, Failure> eraseToAnyPublisher() const {
    return AnyPublisher<Output, Failure>(self());
  }

  /// Passes each value through a function.
  template <class Transform>
  [[nodiscard]] auto map(Transform transform) const {
    using Result = std::remove_cvref_t<std::invoke_result_t<const Transform&, const Output&>>;
    return wrap<Result, Failure, detail::MapSubscriber<Output, Result, Failure, Transform>>(
        std::move(transform));
  }

  /// Passes each value through a function; if that throws, the publisher fails with the exception.
  template <class Transform>
  [[nodiscard]] auto tryMap(Transform transform) const {
    using Result = std::remove_cvref_t<std::invoke_result_t<const Transform&, const Output&>>;
    return wrap<Result, std::exception_ptr,
                detail::TryMapSubscriber<Output, Result, Failure, Transform>>(std::move(transform));
  }

  /// Passes the failure through a function.
  template <class Transform>
  [[nodiscard]] auto mapError(Transform transform) const {
    using Result = std::remove_cvref_t<std::invoke_result_t<const Transform&, const Failure&>>;
    return wrap<Output, Result, detail::MapErrorSubscriber<Output, Failure, Result, Transform>>(
        std::move(transform));
  }

  /// Delivers values and completion as jobs of an executor, one at a time and in order.
  [[nodiscard]] AnyPublisher<Output, Failure> receiveOn(std::shared_ptr<Executor> executor) const {
    return wrap<Output, Failure, detail::ReceiveOnSubscriber<Output, Failure>>(std::move(executor));
  }

  /// Calls the handlers as events pass through.
  [[nodiscard]] AnyPublisher<Output, Failure> handleEvents(
      EventHandlers<Output, Failure> handlers) const {
    using Handlers = EventHandlers<Output, Failure>;
    return wrap<Output, Failure, detail::HandleEventsSubscriber<Output, Failure, Handlers>>(
        std::move(handlers));
  }

  /// Subscribes with unlimited demand. The handlers are called until the result is cancelled or
  /// destroyed; nothing sent after that is delivered, but a value that is being delivered on
  /// another thread may still arrive. Completion releases them, and so does the end of the source.
  [[nodiscard]] AnyCancellable sink(
      std::type_identity_t<std::function<void(const Completion<Failure>&)>> receiveCompletion,
      std::type_identity_t<std::function<void(const Output&)>> receiveValue) const {
    auto sink = std::make_shared<detail::Sink<Output, Failure>>(
        typename detail::Sink<Output, Failure>::Handlers{std::move(receiveCompletion),
                                                         std::move(receiveValue)});
    self().receive(sink);
    // The source owns the subscriber: releasing it destroys the handlers and their captures.
    return AnyCancellable([weak = std::weak_ptr(sink)] {
      if (const auto strong = weak.lock()) strong->cancel();
    });
  }
  [[nodiscard]] AnyCancellable sink(
      std::type_identity_t<std::function<void(const Output&)>> receiveValue) const
    requires std::same_as<Failure, Never>
  {
    return sink(nullptr, std::move(receiveValue));
  }

 private:
  template <class NewOutput, class NewFailure, class Wrapper, class Argument>
  AnyPublisher<NewOutput, NewFailure> wrap(Argument argument) const {
    return AnyPublisher<NewOutput, NewFailure>::subscribingWith(
        [source = self(), argument = std::move(argument)](auto subscriber) {
          source.receive(std::make_shared<Wrapper>(std::move(subscriber), argument));
        });
  }

  const Self& self() const { return static_cast<const Self&>(*this); }
};

/// A type-erased publisher. Cheap to copy. Any thread.
template <class Output, class Failure>
class AnyPublisher final
    : public PublisherOperators<AnyPublisher<Output, Failure>, Output, Failure> {
 public:
  using AnySubscriber = std::shared_ptr<Subscriber<Output, Failure>>;

  template <Publisher Source>
    requires(!std::same_as<Source, AnyPublisher>)
  explicit AnyPublisher(Source source)
      : AnyPublisher(subscribingWith([source = std::move(source)](AnySubscriber subscriber) {
          source.receive(std::move(subscriber));
        })) {}

  /// Makes a publisher from the function that serves each new subscriber.
  static AnyPublisher subscribingWith(std::function<void(AnySubscriber)> subscribe) {
    AnyPublisher publisher;
    publisher.subscribe_ =
        std::make_shared<const std::function<void(AnySubscriber)>>(std::move(subscribe));
    return publisher;
  }

  /// Delivers one value and finishes.
  static AnyPublisher just(Output value) {
    return subscribingWith([value = std::move(value)](AnySubscriber subscriber) {
      detail::OnceSubscription<Output, Failure>::start(std::move(subscriber), value);
    });
  }

  /// Fails at once.
  static AnyPublisher fail(Failure failure) {
    return subscribingWith([failure = std::move(failure)](AnySubscriber subscriber) {
      subscriber->receiveSubscription(detail::emptySubscription());
      subscriber->receiveCompletion(Completion<Failure>::failure(failure));
    });
  }

  void receive(AnySubscriber subscriber) const { (*subscribe_)(std::move(subscriber)); }

 private:
  AnyPublisher() = default;

  std::shared_ptr<const std::function<void(AnySubscriber)>> subscribe_;
};

}  // namespace ombrix::platform

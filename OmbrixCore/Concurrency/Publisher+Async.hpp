#pragma once

#include <chrono>
#include <concepts>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

#include "OmbrixCore/Concurrency/UnfairLock.hpp"
#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixPlatform/Concurrency/AsyncStream.hpp"
#include "OmbrixPlatform/Concurrency/Continuation.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

namespace detail {

/// How long an empty-tuple value may come after the end that announced it.
inline constexpr double kLateValueGraceSeconds = 0.5;

/// What a wait ends with when nothing can end it any more.
template <class Failure>
std::exception_ptr abandonedError() {
  if constexpr (std::same_as<Failure, HTTPError>) {
    return std::make_exception_ptr(HTTPError::canceled());
  } else {
    return std::make_exception_ptr(platform::CancellationError());
  }
}

/// The subscriber behind `asAsync`: hands the first answer to a continuation. The publisher keeps
/// it; when that releases it without an answer, the wait ends.
template <class Output, class Failure>
class FirstValue final : public platform::Subscriber<Output, Failure>,
                         public std::enable_shared_from_this<FirstValue<Output, Failure>> {
 public:
  explicit FirstValue(platform::Continuation<Output> continuation)
      : continuation_(std::move(continuation)) {}
  ~FirstValue() override {
    if (!isResumed_) continuation_.fail(abandonedError<Failure>());
  }

  void receiveSubscription(std::shared_ptr<platform::Subscription> subscription) override {
    const bool isWanted = lock_.sync([&]() OMBRIX_REQUIRES(lock_) {
      if (!isResumed_) subscription_ = subscription;
      return !isResumed_;
    });
    if (isWanted) {
      subscription->request(platform::Demand::unlimited());
    } else {
      subscription->cancel();
    }
  }
  platform::Demand receiveValue(const Output& value) override {
    if (end()) continuation_.resume(value);
    return platform::Demand::none();
  }
  void receiveCompletion(const platform::Completion<Failure>& completion) override {
    if (completion.isFinished() && std::same_as<Output, platform::Void>) {
      awaitLateValue();
    } else if (end(false)) {
      continuation_.fail(completion.isFinished()
                             ? missingBody()
                             : platform::detail::exceptionOf(*completion.failure()));
    }
  }

  /// The waiting task is cancelled.
  void cancel() { end(); }

 private:
  // The order is fixed: the flag first, then the subscription, then the caller resumes.
  bool end(bool cancelsSubscription = true) {
    std::shared_ptr<platform::Subscription> subscription;
    platform::EventToken grace;
    const bool isFirst = lock_.sync([&]() OMBRIX_REQUIRES(lock_) {
      subscription.swap(subscription_);
      std::swap(grace, grace_);
      return !std::exchange(isResumed_, true);
    });
    if (isFirst && cancelsSubscription && subscription) subscription->cancel();
    return isFirst;
  }

  // Kept: the end may overtake the only value there is; without the grace period a request that
  // succeeded would be reported as one without an answer.
  void awaitLateValue() {
    if (lock_.sync([&]() OMBRIX_REQUIRES(lock_) { return isResumed_; })) return;
    const std::chrono::duration<double> grace(kLateValueGraceSeconds);
    auto timer = platform::after(grace, [self = this->shared_from_this()] {
      platform::DispatchQueue::main().async([self] {
        if (self->end(false)) self->continuation_.fail(missingBody());
      });
    });
    lock_.sync([&]() OMBRIX_REQUIRES(lock_) {
      if (!isResumed_) std::swap(grace_, timer);
    });
  }

  static std::exception_ptr missingBody() {
    return std::make_exception_ptr(HTTPError::missingBody());
  }

  const platform::Continuation<Output> continuation_;
  UnfairLock lock_;
  bool isResumed_ OMBRIX_GUARDED_BY(lock_) = false;
  std::shared_ptr<platform::Subscription> subscription_ OMBRIX_GUARDED_BY(lock_);
  platform::EventToken grace_ OMBRIX_GUARDED_BY(lock_);
};

}  // namespace detail

/// Suspends until the publisher delivers its first value and gives it; later values are ignored.
///
/// Throws the publisher's failure; `HTTPError::missingBody` when it finishes without a value (for
/// the empty tuple only after another 0.5 s without one); `CancellationError` when the task is
/// cancelled first, which cancels the subscription. When the publisher releases its subscriber
/// without an answer (its operation was cancelled, its subject is gone), it throws
/// `HTTPError::canceled` where that is its kind of failure, else `CancellationError`. The wait does
/// not keep the publisher, so it ends when all others who could bring it to an answer have let go.
template <platform::Publisher Source>
platform::Async<typename Source::Output> asAsync(Source publisher) {
  using Output = typename Source::Output;
  using First = detail::FirstValue<Output, typename Source::Failure>;
  std::weak_ptr<First> first;
  const std::function<void(platform::Continuation<Output>)> subscribe =
      [&](platform::Continuation<Output> continuation) {
        const auto subscriber = std::make_shared<First>(std::move(continuation));
        first = subscriber;
        // Let go of at once: a publisher of which this is the last copy could never answer.
        const Source last = std::move(publisher);
        last.receive(subscriber);
      };
  const std::function<void()> cancel = [&] {
    if (const auto subscriber = first.lock()) subscriber->cancel();
  };
  auto answer = platform::withContinuation<Output>(subscribe, cancel);
  Output value = co_await std::move(answer);
  co_return value;
}

/// The publisher's values as a stream, buffered without bound; a failure is thrown by `next` after
/// the values. The end of the stream cancels the subscription. When the publisher is gone without
/// an end, one that can fail ends the stream as `asAsync` would; one that cannot ends it plainly.
template <platform::Publisher Source>
platform::AsyncStream<typename Source::Output> asAsyncStream(const Source& publisher) {
  using Output = typename Source::Output;
  using Failure = typename Source::Failure;
  using Stream = platform::AsyncStream<Output>;
  struct Receiver {
    explicit Receiver(typename Stream::Continuation stream) : continuation(std::move(stream)) {}
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() {
      if constexpr (!std::same_as<Failure, platform::Never>) {
        continuation.finish(detail::abandonedError<Failure>());
      }
    }

    const typename Stream::Continuation continuation;
  };
  return Stream([&](typename Stream::Continuation continuation) {
    const auto receiver = std::make_shared<const Receiver>(continuation);
    auto receiveCompletion = [receiver](const platform::Completion<Failure>& completion) {
      if (completion.isFinished()) {
        receiver->continuation.finish();
      } else {
        receiver->continuation.finish(platform::detail::exceptionOf(*completion.failure()));
      }
    };
    auto receiveValue = [receiver](const Output& value) { receiver->continuation.yield(value); };
    const auto subscription = std::make_shared<platform::AnyCancellable>(
        publisher.sink(std::move(receiveCompletion), std::move(receiveValue)));
    continuation.onTermination([subscription] { subscription->cancel(); });
  });
}

}  // namespace ombrix

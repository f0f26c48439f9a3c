#pragma once

#include <atomic>
#include <concepts>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include "OmbrixCore/Concurrency/UnfairLock.hpp"
#include "OmbrixCore/Networking/HTTPError.hpp"
#include "OmbrixPlatform/Concurrency/AsyncStream.hpp"
#include "OmbrixPlatform/Concurrency/Continuation.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

namespace detail {

/// Holds a running subscription for the completion path and the cancellation path. Any thread.
class CancellableWrapper {
 public:
  /// Keeps the subscription, or cancels it when `cancel` was called before.
  void set(platform::AnyCancellable cancellable) {
    lock_.sync([&] {
      if (!isCancelled_) std::swap(cancellable_, cancellable);
    });
  }

  void cancel() {
    platform::AnyCancellable released;
    lock_.sync([&] {
      isCancelled_ = true;
      std::swap(cancellable_, released);
    });
  }

 private:
  UnfairLock lock_;
  bool isCancelled_ = false;
  platform::AnyCancellable cancellable_;
};

/// How long an empty-tuple value may come after the end that announced it.
inline constexpr double kLateValueGraceSeconds = 0.5;

}  // namespace detail

/// Suspends until the publisher delivers its first value and gives it; later values are ignored.
///
/// Throws the publisher's failure; `HTTPError::missingBody` when it finishes without a value (for
/// the empty tuple only after another 0.5 s on the main queue without one); `CancellationError`
/// when the task is cancelled first, which cancels the subscription.
template <platform::Publisher Source>
platform::Async<typename Source::Output> asAsync(Source publisher) {
  using Output = typename Source::Output;
  using Failure = typename Source::Failure;
  using Continuation = platform::Continuation<Output>;
  const auto wrapper = std::make_shared<detail::CancellableWrapper>();
  const std::function<void(Continuation)> subscribe = [&](Continuation continuation) {
    // The continuation takes the first answer only: it is the flag of what has been resumed.
    auto receiveCompletion = [continuation](const platform::Completion<Failure>& completion) {
      if (!completion.isFinished()) {
        continuation.fail(platform::detail::exceptionOf(*completion.failure()));
        return;
      }
      const auto missing = std::make_exception_ptr(HTTPError::missingBody());
      if constexpr (std::same_as<Output, platform::Void>) {
        // Kept: the end may overtake the only value there is; without the grace period a request
        // that succeeded would be reported as one without an answer.
        platform::DispatchQueue::main().asyncAfter(
            std::chrono::duration<double>(detail::kLateValueGraceSeconds),
            [continuation, missing] { continuation.fail(missing); });
      } else {
        continuation.fail(missing);
      }
    };
    auto receiveValue = [continuation, wrapper](const Output& value) {
      if (continuation.resume(value)) wrapper->cancel();
    };
    wrapper->set(publisher.eraseToAnyPublisher().sink(receiveCompletion, receiveValue));
  };
  const std::function<void()> cancel = [&] { wrapper->cancel(); };
  auto first = platform::withContinuation<Output>(subscribe, cancel);
  Output value = co_await std::move(first);
  co_return value;
}

/// The publisher's values as a stream, buffered without bound; a failure is thrown by `next` after
/// the values. The end of the stream cancels the subscription.
template <platform::Publisher Source>
platform::AsyncStream<typename Source::Output> asAsyncStream(const Source& publisher) {
  using Output = typename Source::Output;
  using Failure = typename Source::Failure;
  using Stream = platform::AsyncStream<Output>;
  return Stream([&](typename Stream::Continuation continuation) {
    const auto wrapper = std::make_shared<detail::CancellableWrapper>();
    auto receiveCompletion = [continuation](const platform::Completion<Failure>& completion) {
      if (completion.isFinished()) {
        continuation.finish();
      } else {
        continuation.finish(platform::detail::exceptionOf(*completion.failure()));
      }
    };
    auto receiveValue = [continuation](const Output& value) { continuation.yield(value); };
    wrapper->set(publisher.eraseToAnyPublisher().sink(receiveCompletion, receiveValue));
    continuation.onTermination([wrapper] { wrapper->cancel(); });
  });
}

}  // namespace ombrix

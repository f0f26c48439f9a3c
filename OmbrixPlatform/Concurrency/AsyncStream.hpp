#pragma once

#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Concurrency/Continuation.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Values/NestedCalls.hpp"

namespace ombrix::platform {

/// A sequence of values that arrive over time, for one consumer; buffers without bound. Move-only:
/// dropping the stream ends it.
///
///     for (;;) {
///       const auto value = co_await stream.next();
///       if (!value) break;
///       ...
///     }
template <class T>
class AsyncStream {
  struct State {
    // Who gets what is decided under the lock; continuations are resumed outside it.
    FutexLock mutex;
    std::deque<T> buffer OMBRIX_GUARDED_BY(mutex);
    bool isOver OMBRIX_GUARDED_BY(mutex) = false;
    std::exception_ptr error OMBRIX_GUARDED_BY(mutex);
    std::optional<platform::Continuation<void>> waiting OMBRIX_GUARDED_BY(mutex);
    std::function<void()> onTermination OMBRIX_GUARDED_BY(mutex);

    void end(std::exception_ptr failure, bool dropsBuffer) {
      std::optional<platform::Continuation<void>> waiter;
      std::function<void()> handler;
      std::deque<T> dropped;
      {
        const LockGuard lock(mutex);
        if (dropsBuffer) dropped.swap(buffer);
        if (isOver) return;
        isOver = true;
        error = std::move(failure);
        waiter.swap(waiting);
        handler.swap(onTermination);
      }
      if (!handler && !waiter) return;
      // The handler may end another stream, whose handler ends a third, and so on.
      detail::NestedCalls::make([handler = std::move(handler), waiter = std::move(waiter)] {
        if (handler) callOut("a termination handler", handler);
        if (waiter) waiter->resume();
      });
    }
  };

 public:
  /// The producing end. Copyable; the stream ends when the last copy is destroyed. Any thread;
  /// calls after the stream has ended do nothing.
  class Continuation {
   public:
    void yield(T value) const {
      std::optional<platform::Continuation<void>> waiter;
      {
        const LockGuard lock(state().mutex);
        if (state().isOver) return;
        state().buffer.push_back(std::move(value));
        waiter.swap(state().waiting);
      }
      if (waiter) waiter->resume();
    }
    void finish() const { state().end(nullptr, false); }

    /// Ends the stream with an exception, which `next` throws after the buffered values.
    void finish(std::exception_ptr error) const { state().end(std::move(error), false); }

    /// Calls the handler once when the stream ends, for any reason; at once if it has ended.
    void onTermination(std::function<void()> handler) const {
      {
        const LockGuard lock(state().mutex);
        if (!state().isOver) {
          state().onTermination.swap(handler);
          return;
        }
      }
      callOut("a termination handler", handler);
    }

   private:
    friend class AsyncStream;
    struct Producer {
      explicit Producer(std::shared_ptr<State> stream) : state(std::move(stream)) {}
      Producer(const Producer&) = delete;
      Producer& operator=(const Producer&) = delete;
      ~Producer() { state->end(nullptr, false); }

      const std::shared_ptr<State> state;
    };

    explicit Continuation(std::shared_ptr<State> state)
        : producer_(std::make_shared<const Producer>(std::move(state))) {}

    State& state() const { return *producer_->state; }

    std::shared_ptr<const Producer> producer_;
  };

  /// Makes a stream and passes its producing end to a function.
  explicit AsyncStream(const std::function<void(Continuation)>& build)
      : state_(std::make_shared<State>()) {
    build(Continuation(state_));
  }
  AsyncStream(AsyncStream&&) noexcept = default;
  AsyncStream& operator=(AsyncStream&& other) noexcept {
    std::swap(state_, other.state_);
    return *this;
  }
  ~AsyncStream() {
    if (state_) state_->end(nullptr, true);
  }

  /// The next value; empty when the stream has ended or the task was cancelled, which ends the
  /// stream; throws the exception that the stream ended with. One call at a time.
  Async<std::optional<T>> next() { return nextOf(state_); }

 private:
  // Takes the state: the stream may be destroyed before the call begins, or while it waits.
  static Async<std::optional<T>> nextOf(std::shared_ptr<State> state) {
    for (;;) {
      {
        const LockGuard lock(state->mutex);
        if (!state->buffer.empty()) {
          std::optional<T> value(std::move(state->buffer.front()));
          state->buffer.pop_front();
          co_return value;
        }
        if (state->isOver) {
          if (state->error) std::rethrow_exception(std::exchange(state->error, nullptr));
          co_return std::nullopt;
        }
      }
      std::function<void(platform::Continuation<void>)> body =
          [&](platform::Continuation<void> continuation) {
            {
              const LockGuard lock(state->mutex);
              if (state->buffer.empty() && !state->isOver) {
                state->waiting = continuation;
                return;
              }
            }
            continuation.resume();
          };
      std::function<void()> onCancel = [&] { state->end(nullptr, true); };
      try {
        co_await withContinuation<void>(body, onCancel);
      } catch (const CancellationError&) {
        co_return std::nullopt;
      }
    }
  }

  std::shared_ptr<State> state_;
};

/// The same for sources that can fail; `next` throws the failure.
template <class T>
using AsyncThrowingStream = AsyncStream<T>;

}  // namespace ombrix::platform

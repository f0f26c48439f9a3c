#pragma once

#include <atomic>
#include <chrono>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

#include "OmbrixPlatform/Concurrency/Async.hpp"

namespace ombrix::platform {

namespace detail {

template <class T>
struct ContinuationState {
  // Settling and suspending meet as in PromiseBase; the coroutine goes on through its executor, so
  // that whoever settles is never held up by it.
  bool settle(auto&& fill) {
    if (isSettled.exchange(true)) return false;
    fill(outcome);
    if (met.exchange(true)) executor->post(resumptionOf(handle));
    return true;
  }

  std::atomic<bool> isSettled{false};
  std::atomic<bool> met{false};
  Outcome<T> outcome;
  std::coroutine_handle<> handle;
  std::shared_ptr<Executor> executor;
  std::optional<std::stop_callback<std::function<void()>>> onStop;
};

}  // namespace detail

/// The other end of a suspended coroutine, for code that works with callbacks. Copyable; the first
/// call of `resume` or `fail` continues the coroutine, later ones do nothing. Any thread.
template <class T>
class Continuation {
 public:
  explicit Continuation(std::shared_ptr<detail::ContinuationState<T>> state)
      : state_(std::move(state)) {}

  /// True when this call was the first.
  template <class... Value>
  bool resume(Value&&... value) const {
    return state_->settle(
        [&](auto& outcome) { outcome.emplaceValue(std::forward<Value>(value)...); });
  }
  bool fail(std::exception_ptr error) const {
    return state_->settle([&](auto& outcome) { outcome.setError(std::move(error)); });
  }

 private:
  std::shared_ptr<detail::ContinuationState<T>> state_;
};

/// Suspends until the continuation handed to `body` is resumed.
///
/// `body` runs at once on the calling thread. When the task is cancelled first, `onCancel` runs (on
/// the cancelling thread) and the wait ends with `CancellationError`. Name both closures before
/// the statement that awaits.
template <class T>
Async<T> withContinuation(std::function<void(Continuation<T>)> body,
                          std::function<void()> onCancel = nullptr) {
  struct Awaiter {
    detail::ContinuationState<T>& state;
    const std::shared_ptr<detail::ContinuationState<T>>& owner;
    const std::function<void(Continuation<T>)>& body;
    const std::function<void()>& onCancel;

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<detail::Promise<T>> handle) {
      state.handle = handle;
      state.executor = handle.promise().context().executor;
      const std::stop_token stopToken = handle.promise().context().stopToken;
      body(Continuation<T>(owner));
      if (!state.isSettled && stopToken.stop_possible()) {
        state.onStop.emplace(stopToken, [continuation = Continuation<T>(owner), this] {
          if (onCancel) onCancel();
          continuation.fail(std::make_exception_ptr(CancellationError()));
        });
      }
      return !state.met.exchange(true);
    }
    T await_resume() {
      state.onStop.reset();
      return state.outcome.take();
    }
  };
  const auto state = std::make_shared<detail::ContinuationState<T>>();
  Awaiter awaiter{*state, state, body, onCancel};
  if constexpr (std::is_void_v<T>) {
    co_await awaiter;
  } else {
    T value = co_await awaiter;
    co_return value;
  }
}

/// Waits for a delay in seconds by the clock service; throws `CancellationError` when the task is
/// cancelled meanwhile.
Async<void> sleepFor(std::chrono::duration<double> delay);

/// Thrown by `withTimeout`.
class TimeoutError : public Error {
 public:
  TimeoutError() : Error("the operation timed out") {}
};

namespace detail {

/// A stop source that follows another and is requested after a delay.
class Deadline;
std::shared_ptr<Deadline> makeDeadline(std::chrono::duration<double> delay,
                                       const std::stop_token& outer);
std::stop_token stopToken(const Deadline& deadline);
bool hasPassed(const Deadline& deadline);

}  // namespace detail

/// Awaits work with a time-out in seconds by the clock service: when it passes, the work is asked
/// to stop, and if it ends as cancelled then, `TimeoutError` is thrown. Work that does not heed
/// cancellation is waited for.
template <class T>
Async<T> withTimeout(Async<T> work, std::chrono::duration<double> delay) {
  struct Awaiter {
    Async<T>& work;
    const TaskContext& context;

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<detail::Promise<T>> handle) {
      return work.begin(context, detail::resumptionOf(handle));
    }
    void await_resume() const noexcept {}
  };
  const TaskContext& outer = co_await currentContext;
  const auto deadline = detail::makeDeadline(delay, outer.stopToken);
  const TaskContext inner{outer.executor, detail::stopToken(*deadline)};
  Awaiter awaiter{work, inner};
  co_await awaiter;
  try {
    co_return work.outcome().take();
  } catch (const CancellationError&) {
    if (!detail::hasPassed(*deadline)) throw;
  }
  throw TimeoutError();
}

}  // namespace ombrix::platform

#pragma once

#include <atomic>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform {

namespace detail {

template <class T>
struct ContinuationState {
  // Settling and suspending meet here: the second of the two resumes the coroutine, through its
  // executor, so that the thread that settles is never held up by the coroutine.
  bool settle(auto&& fill) {
    if (isSettled.exchange(true)) return false;
    try {
      fill(outcome);
    } catch (...) {  // the value cannot be copied: no other call can end the wait any more
      outcome.setError(std::current_exception());
    }
    if (met.exchange(true)) {
      const auto target = executor;  // the coroutine may end, and its task be destroyed, meanwhile
      target->post(ResumeJob(handle));
    }
    return true;
  }
  bool cancel() {
    return settle(
        [](auto& result) { result.setError(std::make_exception_ptr(CancellationError())); });
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
/// call of `resume` or `fail` continues the coroutine, later calls do nothing. If constructing the
/// value throws, the coroutine gets that exception. If the last copy is destroyed without a call,
/// the wait ends with `CancellationError`. Any thread.
template <class T>
class Continuation {
 public:
  explicit Continuation(std::shared_ptr<detail::ContinuationState<T>> state)
      : promise_(std::make_shared<const Promise>(std::move(state))) {}

  /// Returns true when this call was the first.
  template <class... Value>
  bool resume(Value&&... value) const {
    return promise_->state->settle(
        [&](auto& outcome) { outcome.emplaceValue(std::forward<Value>(value)...); });
  }
  bool fail(std::exception_ptr error) const {
    return promise_->state->settle([&](auto& outcome) { outcome.setError(std::move(error)); });
  }

 private:
  struct Promise {
    explicit Promise(std::shared_ptr<detail::ContinuationState<T>> coroutine)
        : state(std::move(coroutine)) {}
    Promise(const Promise&) = delete;
    Promise& operator=(const Promise&) = delete;
    ~Promise() { state->cancel(); }

    const std::shared_ptr<detail::ContinuationState<T>> state;
  };

  std::shared_ptr<const Promise> promise_;
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
        state.onStop.emplace(stopToken, [this] {
          if (onCancel) callOut("a cancellation handler", onCancel);
          state.cancel();
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

}  // namespace ombrix::platform

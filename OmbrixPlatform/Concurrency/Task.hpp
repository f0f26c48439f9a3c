#pragma once

#include <concepts>
#include <coroutine>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"

namespace ombrix::platform {

namespace detail {

struct TaskWaiter {
  Resumption resumption;
  std::shared_ptr<Executor> executor;  // none: called at once, on the finishing thread
};

template <class T>
class TaskState final : public std::enable_shared_from_this<TaskState<T>> {
 public:
  using Body = std::move_only_function<Async<T>()>;

  TaskState(std::shared_ptr<Executor> executor, Body body)
      : context_{std::move(executor), stop_.get_token()}, body_(std::move(body)) {}

  void post() {
    context_.executor->post([self = this->shared_from_this()] { self->run(); });
  }

  void cancel() { stop_.request_stop(); }
  [[nodiscard]] bool isCancelled() const { return stop_.stop_requested(); }

  [[nodiscard]] bool isFinished() const {
    const std::lock_guard lock(mutex_);
    return isFinished_;
  }

  /// False when the task is over already, and the waiter will not be called.
  bool addWaiter(TaskWaiter waiter) {
    const std::lock_guard lock(mutex_);
    if (isFinished_) return false;
    waiters_.push_back(std::move(waiter));
    return true;
  }

  /// Only once finished.
  const Outcome<T>& outcome() const { return outcome_; }

 private:
  void run() {
    try {
      work_.emplace(body_());
    } catch (...) {
      outcome_.setError(std::current_exception());
      finish();
      return;
    }
    // Running work keeps its own state: the task may have been dropped by everyone else.
    self_ = this->shared_from_this();
    const Resumption whenDone{[](void* state) { static_cast<TaskState*>(state)->complete(); },
                              this};
    if (!work_->begin(context_, whenDone)) complete();
  }

  void complete() {
    const auto self = std::move(self_);
    runInto(outcome_, [this]() -> T { return work_->outcome().take(); });
    finish();
  }

  // The coroutine and what it captured are gone before anyone learns of the result.
  void finish() {
    work_.reset();
    body_ = nullptr;
    std::vector<TaskWaiter> waiters;
    {
      const std::lock_guard lock(mutex_);
      isFinished_ = true;
      waiters.swap(waiters_);
    }
    for (auto& waiter : waiters) {
      if (waiter.executor) {
        waiter.executor->post(waiter.resumption);
      } else {
        waiter.resumption();
      }
    }
  }

  std::stop_source stop_;
  TaskContext context_;
  Body body_;
  std::optional<Async<T>> work_;
  std::shared_ptr<TaskState> self_;
  mutable FutexLock mutex_;
  bool isFinished_ = false;
  std::vector<TaskWaiter> waiters_;
  Outcome<T> outcome_;
};

}  // namespace detail

/// A running asynchronous operation of its own: copyable, and any number may await it; each gets a
/// copy of its value, or its exception. Dropping it does not end it. Any thread.
template <class T>
class Task {
 public:
  /// Asks the operation to stop: what it awaits throws `CancellationError` or ends early, if it
  /// heeds that. The operation still decides how it ends.
  void cancel() const { state_->cancel(); }

  [[nodiscard]] bool isCancelled() const { return state_->isCancelled(); }
  [[nodiscard]] bool isFinished() const { return state_->isFinished(); }

  /// Blocks until it is over; its value or its exception. Not from inside a section of an actor.
  T get() const {
    detail::BlockingWait wait;
    if (state_->addWaiter({wait.resumption(), nullptr})) wait.wait();
    return state_->outcome().copy();
  }

  /// Waits in a coroutine. Cancelling the waiting task does not reach the awaited one, nor end the
  /// wait.
  auto operator co_await() const { return Awaiter{state_.get()}; }

  friend bool operator==(const Task&, const Task&) = default;

 private:
  template <class>
  friend class Async;
  template <class Body>
  friend auto startTask(Body body, std::shared_ptr<Executor> executor);

  struct Awaiter {
    detail::TaskState<T>* state;

    bool await_ready() const noexcept { return false; }
    template <detail::HasTaskContext Parent>
    bool await_suspend(std::coroutine_handle<Parent> parent) {
      return state->addWaiter({detail::resumptionOf(parent), parent.promise().context().executor});
    }
    T await_resume() { return state->outcome().copy(); }
  };

  explicit Task(std::shared_ptr<detail::TaskState<T>> state) : state_(std::move(state)) {
    state_->post();
  }

  std::shared_ptr<detail::TaskState<T>> state_;
};

template <class T>
Task<T> Async<T>::start(std::shared_ptr<Executor> executor) && {
  auto body = [work = std::move(*this)]() mutable { return std::move(work); };
  return Task<T>(std::make_shared<detail::TaskState<T>>(std::move(executor), std::move(body)));
}

namespace detail {

template <class>
struct AsyncValue {};
template <class T>
struct AsyncValue<Async<T>> {
  using Type = T;
};

}  // namespace detail

/// Starts a closure on an executor, the thread pool by default, and gives its task. The closure may
/// be a coroutine (its captures live as long as it runs) or a plain function.
template <class Body>
auto startTask(Body body, std::shared_ptr<Executor> executor = poolExecutor());

template <class Body>
auto startTask(Body body, std::shared_ptr<Executor> executor) {
  using Result = std::invoke_result_t<Body&>;
  if constexpr (requires { typename detail::AsyncValue<Result>::Type; }) {
    using T = typename detail::AsyncValue<Result>::Type;
    return Task<T>(std::make_shared<detail::TaskState<T>>(std::move(executor), std::move(body)));
  } else {
    auto coroutine = [body = std::move(body)]() mutable -> Async<Result> { co_return body(); };
    return Task<Result>(
        std::make_shared<detail::TaskState<Result>>(std::move(executor), std::move(coroutine)));
  }
}

}  // namespace ombrix::platform

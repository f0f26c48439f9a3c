#pragma once

#include <atomic>
#include <concepts>
#include <coroutine>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix::platform {

namespace detail {

/// A party that waits for a task; it is stored where it waits.
struct TaskWaiter {
  Resumption resumption;  // called once on the thread that finishes the task; brief
  TaskWaiter* previous = nullptr;
  TaskWaiter* next = nullptr;
  bool isListed = false;
};

/// The part of a task's state that does not depend on the type of its value.
class TaskStateBase {
 public:
  void cancel() { stop_.request_stop(); }
  [[nodiscard]] bool isCancelled() const { return stop_.stop_requested(); }
  [[nodiscard]] bool isFinished() const;

  /// False when the task has finished already; the waiter is not called then.
  bool addWaiter(TaskWaiter& waiter);

  /// True when the waiter has not been called and will not be.
  bool removeWaiter(TaskWaiter& waiter);

 protected:
  TaskStateBase(std::shared_ptr<Executor> executor)
      : context_{std::move(executor), stop_.get_token()} {}

  /// Calls all waiters.
  void finish();

  std::stop_source stop_;
  TaskContext context_;

 private:
  mutable FutexLock mutex_;
  bool isFinished_ OMBRIX_GUARDED_BY(mutex_) = false;
  TaskWaiter* first_ OMBRIX_GUARDED_BY(mutex_) = nullptr;
  TaskWaiter* last_ OMBRIX_GUARDED_BY(mutex_) = nullptr;
};

template <class T>
class TaskState final : public TaskStateBase, public std::enable_shared_from_this<TaskState<T>> {
 public:
  using Body = std::move_only_function<Async<T>()>;

  TaskState(std::shared_ptr<Executor> executor, Body body)
      : TaskStateBase(std::move(executor)), body_(std::move(body)) {}

  void post() { context_.executor->post(OwedJob(this->shared_from_this())); }

  /// Valid only after the task has finished.
  const Outcome<T>& outcome() const { return outcome_; }
  void throwIfFailed() const { outcome_.throwIfError(); }

  void run() {
    if (isCancelled()) return drop();
    try {
      work_.emplace(body_());
    } catch (...) {
      outcome_.setError(std::current_exception());
      release();
      return;
    }
    // Running work holds its own state: all other references to the task may have been dropped.
    self_ = this->shared_from_this();
    work_->begin(context_, {[](void* state) { static_cast<TaskState*>(state)->complete(); }, this});
  }

  /// Ends it before it begins: it was cancelled, or its executor dropped it.
  void drop() {
    outcome_.setError(std::make_exception_ptr(CancellationError()));
    release();
  }

 private:
  void complete() {
    const auto self = std::move(self_);
    runInto(outcome_, [this]() -> T { return work_->outcome().take(); });
    release();
  }

  // Destroys the coroutine and its captures before the result becomes visible.
  void release() {
    work_.reset();
    body_ = nullptr;
    finish();
  }

  Body body_;
  std::optional<Async<T>> work_;
  std::shared_ptr<TaskState> self_;
  Outcome<T> outcome_;
};

/// A coroutine that waits until a task finishes or its own task is cancelled.
class TaskWait {
 public:
  TaskWait() = default;
  TaskWait(const TaskWait&) = delete;
  TaskWait& operator=(const TaskWait&) = delete;

  /// False when it need not wait. The context must outlive it.
  bool begin(TaskStateBase& task, std::coroutine_handle<> coroutine, const TaskContext& context);

  /// Whether the wait was ended by a cancellation.
  [[nodiscard]] bool wasCancelled() const { return wasCancelled_; }

 private:
  struct Stop {
    TaskWait& wait;
    void operator()() const noexcept;
  };

  void end();

  TaskStateBase* task_ = nullptr;
  const TaskContext* context_ = nullptr;
  std::coroutine_handle<> coroutine_;
  TaskWaiter waiter_;
  std::atomic<bool> met_{false};  // set by its end and its suspension; the second resumes
  bool wasCancelled_ = false;
  std::optional<std::stop_callback<Stop>> onStop_;
};

}  // namespace detail

/// A running asynchronous operation: copyable, and any number of callers may await it; each gets a
/// copy of its value, or its exception. Dropping it does not end it. A task that is cancelled
/// before it begins, or that its executor drops, never runs: it ends with `CancellationError`. Any
/// thread.
template <class T>
class Task {
 public:
  /// Requests cancellation: the call that the operation awaits throws `CancellationError` or ends
  /// early, if it supports that. An operation that has begun still decides how it ends.
  void cancel() const { state_->cancel(); }

  [[nodiscard]] bool isCancelled() const { return state_->isCancelled(); }
  [[nodiscard]] bool isFinished() const { return state_->isFinished(); }

  /// Blocks until it finishes; its value or its exception. Not from inside a section of an actor.
  T get() const {
    const auto state = state_;  // this copy of the task may be replaced meanwhile
    detail::BlockingWait wait;
    detail::TaskWaiter waiter{wait.resumption()};
    if (state->addWaiter(waiter)) wait.wait();
    return state->outcome().copy();
  }

  /// Awaits it in a coroutine. Cancelling the waiting task ends the wait at once with
  /// `CancellationError`, unless the result is known already; the awaited task continues.
  auto operator co_await() const { return Awaiter(state_); }

  friend bool operator==(const Task&, const Task&) = default;

  /// For code that implements waits.
  friend const std::shared_ptr<detail::TaskState<T>>& stateOf(const Task& task) {
    return task.state_;
  }

 private:
  template <class>
  friend class Async;
  template <class Body>
  friend auto startTask(Body body, std::shared_ptr<Executor> executor);

  class Awaiter {
   public:
    explicit Awaiter(std::shared_ptr<detail::TaskState<T>> state) : state_(std::move(state)) {}

    bool await_ready() const noexcept { return false; }
    template <detail::HasTaskContext Parent>
    bool await_suspend(std::coroutine_handle<Parent> parent) {
      return wait_.begin(*state_, parent, parent.promise().context());
    }
    T await_resume() {
      if (wait_.wasCancelled()) throw CancellationError();
      return state_->outcome().copy();
    }

   private:
    // Its own reference: the awaited task may be replaced or dropped before the coroutine resumes.
    const std::shared_ptr<detail::TaskState<T>> state_;
    detail::TaskWait wait_;
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

/// Starts a closure on an executor, the thread pool by default, and returns its task. The closure
/// may be a coroutine (its captures live as long as it runs) or a plain function.
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

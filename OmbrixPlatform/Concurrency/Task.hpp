#pragma once

#include <atomic>
#include <concepts>
#include <coroutine>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"

namespace ombrix::platform {

namespace detail {

/// One who waits for a task; lives where it waits.
struct TaskWaiter {
  Resumption resumption;  // called once on the thread that finishes the task; brief
  TaskWaiter* previous = nullptr;
  TaskWaiter* next = nullptr;
  bool isListed = false;
};

/// What does not depend on the type of a task's value.
class TaskStateBase {
 public:
  void cancel() { stop_.request_stop(); }
  [[nodiscard]] bool isCancelled() const { return stop_.stop_requested(); }
  [[nodiscard]] bool isFinished() const;

  /// False when the task is over already, and the waiter will not be called.
  bool addWaiter(TaskWaiter& waiter);

  /// True when the waiter had not been called, nor will be.
  bool removeWaiter(TaskWaiter& waiter);

 protected:
  TaskStateBase(std::shared_ptr<Executor> executor)
      : context_{std::move(executor), stop_.get_token()} {}

  /// Calls all waiters.
  void finish();

  std::stop_source stop_;
  TaskContext context_;

 private:
  mutable FutexLock mutex_;  // guards what follows
  bool isFinished_ = false;
  TaskWaiter* first_ = nullptr;
  TaskWaiter* last_ = nullptr;
};

template <class T>
class TaskState final : public TaskStateBase, public std::enable_shared_from_this<TaskState<T>> {
 public:
  using Body = std::move_only_function<Async<T>()>;

  TaskState(std::shared_ptr<Executor> executor, Body body)
      : TaskStateBase(std::move(executor)), body_(std::move(body)) {}

  void post() { context_.executor->post(OwedJob(this->shared_from_this())); }

  /// Only once finished.
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
    // Running work keeps its own state: the task may have been dropped by everyone else.
    self_ = this->shared_from_this();
    work_->begin(context_, {[](void* state) { static_cast<TaskState*>(state)->complete(); }, this});
  }

  /// Ends it before it has begun: it was asked to stop, or its executor is not going to run it.
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

  // The coroutine and what it captured are gone before anyone learns of the result.
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

/// A coroutine that waits for a task, until that is over or its own task is cancelled.
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
  std::atomic<bool> met_{false};  // its end and its suspension; the second one goes on
  bool wasCancelled_ = false;
  std::optional<std::stop_callback<Stop>> onStop_;
};

}  // namespace detail

/// A running asynchronous operation of its own: copyable, and any number may await it; each gets a
/// copy of its value, or its exception. Dropping it does not end it. One that is cancelled before
/// it begins, or that its executor drops, never begins: it ends with `CancellationError`. Any
/// thread.
template <class T>
class Task {
 public:
  /// Asks the operation to stop: what it awaits throws `CancellationError` or ends early, if it
  /// heeds that. An operation that has begun still decides how it ends.
  void cancel() const { state_->cancel(); }

  [[nodiscard]] bool isCancelled() const { return state_->isCancelled(); }
  [[nodiscard]] bool isFinished() const { return state_->isFinished(); }

  /// Blocks until it is over; its value or its exception. Not from inside a section of an actor.
  T get() const {
    const auto state = state_;  // this copy of the task may be replaced meanwhile
    detail::BlockingWait wait;
    detail::TaskWaiter waiter{wait.resumption()};
    if (state->addWaiter(waiter)) wait.wait();
    return state->outcome().copy();
  }

  /// Waits in a coroutine. Cancelling the waiting task ends the wait at once with
  /// `CancellationError`, unless the result is known already; the awaited task goes on.
  auto operator co_await() const { return Awaiter(state_); }

  friend bool operator==(const Task&, const Task&) = default;

  /// A building block of things that wait.
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
    // Its own: the task that is awaited may be replaced or dropped before the coroutine goes on.
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

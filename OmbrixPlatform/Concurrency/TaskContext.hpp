#pragma once

#include <coroutine>
#include <exception>
#include <memory>
#include <stop_token>
#include <type_traits>
#include <utility>
#include <variant>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Thrown by the calls that a cancelled task awaits.
class CancellationError : public Error {
 public:
  CancellationError() : Error("the task was cancelled") {}
};

/// The executor on which a task resumes after waiting, and whether it was cancelled; passed from
/// each coroutine to those it awaits.
struct TaskContext {
  std::shared_ptr<Executor> executor;
  std::stop_token stopToken;
};

/// The thread pool as the executor of a context.
std::shared_ptr<Executor> poolExecutor();

namespace detail {

/// Called when an awaited operation finishes: a plain function, so that coroutines, blocked threads
/// and tasks wait in one way without an allocation.
struct Resumption {
  void (*function)(void*) = nullptr;
  void* argument = nullptr;

  void operator()() const { function(argument); }
};

/// Runs coroutines one after the other instead of inside each other: a coroutine that awaits
/// another, or ends, names the next one and returns to the loop at the bottom. So the stack stays
/// flat for any length of the chain of awaits. (A transfer from frame to frame would need a tail
/// call, which compilers make neither without optimisation nor under sanitizers.)
class Trampoline {
 public:
  /// Resumes a coroutine and all that continue after it on this thread.
  static void run(std::coroutine_handle<> coroutine) {
    const auto outer = std::exchange(next_, nullptr);
    while (coroutine) {
      coroutine.resume();
      coroutine = std::exchange(next_, nullptr);
    }
    next_ = outer;
  }

  /// Called inside `run` by a coroutine that suspends: names the coroutine to continue with.
  static void continueWith(std::coroutine_handle<> coroutine) noexcept { next_ = coroutine; }

 private:
  static inline constinit thread_local std::coroutine_handle<> next_ = nullptr;
};

/// The job that resumes a coroutine. If an executor drops it, the coroutine resumes in the thread
/// pool: it cannot be taken back, and others may wait for it.
class ResumeJob {
 public:
  explicit ResumeJob(std::coroutine_handle<> coroutine) : coroutine_(coroutine) {}
  ResumeJob(ResumeJob&& other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
  ResumeJob& operator=(ResumeJob&&) = delete;
  ~ResumeJob() {
    if (coroutine_) resumeInPool(coroutine_);
  }

  void operator()() { Trampoline::run(std::exchange(coroutine_, nullptr)); }

 private:
  static void resumeInPool(std::coroutine_handle<> coroutine) noexcept;

  std::coroutine_handle<> coroutine_;
};

struct Nothing {};

/// The value or the exception of a finished operation.
template <class T>
class Outcome {
 public:
  using Stored = std::conditional_t<std::is_void_v<T>, Nothing, T>;

  template <class... Arguments>
  void emplaceValue(Arguments&&... arguments) {
    content_.template emplace<1>(std::forward<Arguments>(arguments)...);
  }
  void setError(std::exception_ptr error) { content_.template emplace<2>(std::move(error)); }

  /// Moves the value out, or throws.
  T take() {
    throwIfError();
    if constexpr (!std::is_void_v<T>) return std::move(std::get<1>(content_));
  }

  /// Copies the value, or throws.
  T copy() const {
    throwIfError();
    if constexpr (!std::is_void_v<T>) return std::get<1>(content_);
  }

  void throwIfError() const {
    if (content_.index() == 2) std::rethrow_exception(std::get<2>(content_));
  }

 private:
  std::variant<std::monostate, Stored, std::exception_ptr> content_;
};

/// Runs a closure and keeps its value or exception.
template <class T, class Closure>
void runInto(Outcome<T>& outcome, Closure&& closure) {
  try {
    if constexpr (std::is_void_v<T>) {
      std::forward<Closure>(closure)();
      outcome.emplaceValue();
    } else {
      outcome.emplaceValue(std::forward<Closure>(closure)());
    }
  } catch (...) {
    outcome.setError(std::current_exception());
  }
}

/// The base of the promise of every coroutine in this library.
class PromiseBase {
 public:
  struct FinalAwaiter {
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    void await_suspend(std::coroutine_handle<Promise> handle) const noexcept {
      const PromiseBase& promise = handle.promise();
      if (promise.parent_) {
        Trampoline::continueWith(promise.parent_);
      } else {
        promise.resumption_();
      }
    }
    void await_resume() const noexcept {}
  };

  std::suspend_always initial_suspend() const noexcept { return {}; }
  FinalAwaiter final_suspend() const noexcept { return {}; }

  const TaskContext& context() const { return *context_; }

  /// Runs the coroutine until it first waits. Calls the resumption when it finishes, perhaps inside
  /// this call. The context must outlive it.
  void begin(std::coroutine_handle<> self, const TaskContext& context, Resumption resumption) {
    context_ = &context;
    resumption_ = resumption;
    Trampoline::run(self);
  }

  /// Runs the coroutine on behalf of its parent, which suspends and continues after it.
  void beginFor(std::coroutine_handle<> parent, std::coroutine_handle<> self,
                const TaskContext& context) {
    context_ = &context;
    parent_ = parent;
    Trampoline::continueWith(self);
  }

 private:
  const TaskContext* context_ = nullptr;
  std::coroutine_handle<> parent_;
  Resumption resumption_;  // used when the coroutine has no parent
};

template <class Promise>
concept HasTaskContext = std::is_base_of_v<PromiseBase, Promise>;

}  // namespace detail

/// `co_await currentContext` returns the context of the running coroutine.
struct CurrentContext {
  struct Awaiter {
    const TaskContext* context = nullptr;

    bool await_ready() const noexcept { return false; }
    template <detail::HasTaskContext Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) noexcept {
      context = &handle.promise().context();
      return false;
    }
    const TaskContext& await_resume() const noexcept { return *context; }
  };

  Awaiter operator co_await() const noexcept { return {}; }
};
inline constexpr CurrentContext currentContext;

/// `co_await checkCancellation` throws `CancellationError` when the task was cancelled.
struct CheckCancellation {
  struct Awaiter : CurrentContext::Awaiter {
    void await_resume() const {
      if (context->stopToken.stop_requested()) throw CancellationError();
    }
  };

  Awaiter operator co_await() const noexcept { return {}; }
};
inline constexpr CheckCancellation checkCancellation;

}  // namespace ombrix::platform

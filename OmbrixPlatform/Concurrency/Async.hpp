#pragma once

#include <atomic>
#include <coroutine>
#include <memory>
#include <semaphore>
#include <utility>

#include "OmbrixPlatform/Concurrency/TaskContext.hpp"

namespace ombrix::platform {

template <class T>
class Async;
template <class T>
class Task;

namespace detail {

/// Stops the program when the calling thread is inside a section of an actor.
void checkMayBlock();

/// Destroys a suspended coroutine. Its frame may hold other coroutines, nested to any depth.
void destroyFrame(std::coroutine_handle<> frame) noexcept;

/// Blocks until the resumption was called; a pool thread lends out its place meanwhile. Makes no
/// system call when the resumption was called first.
class BlockingWait {
 public:
  Resumption resumption() {
    return {[](void* self) { static_cast<BlockingWait*>(self)->resume(); }, this};
  }
  void wait();

 private:
  enum class State { running, blocked, over };

  void resume();

  std::atomic<State> state_{State::running};
  std::binary_semaphore isOver_{0};  // released only for a thread that is blocked
};

template <class T>
class Promise final : public PromiseBase {
 public:
  Async<T> get_return_object() noexcept;
  template <class U = T>
  void return_value(U&& value) {
    outcome_.emplaceValue(std::forward<U>(value));
  }
  void unhandled_exception() noexcept { outcome_.setError(std::current_exception()); }
  Outcome<T>& outcome() { return outcome_; }

 private:
  Outcome<T> outcome_;
};

template <>
class Promise<void> final : public PromiseBase {
 public:
  Async<void> get_return_object() noexcept;
  void return_void() { outcome_.emplaceValue(); }
  void unhandled_exception() noexcept { outcome_.setError(std::current_exception()); }
  Outcome<void>& outcome() { return outcome_; }

 private:
  Outcome<void> outcome_;
};

}  // namespace detail

/// The result of an asynchronous operation: a coroutine that runs once it is awaited, started or
/// fetched with `get`. Move-only; if it is dropped before that, it never runs.
///
/// Await it in a statement of its own, with named arguments only:
///
///     auto item = co_await store.value(key);
template <class T>
class [[nodiscard]] Async {
 public:
  using promise_type = detail::Promise<T>;
  using Value = T;

  Async(Async&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Async& operator=(Async&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Async() {
    if (handle_) detail::destroyFrame(handle_);
  }

  /// Runs it on the calling thread until it first waits, then blocks until it finishes; returns its
  /// value or throws its exception. Any thread. Stops the program inside a section of an actor;
  /// deadlocks when it waits for work of the queue that it is called on.
  T get() && {
    const TaskContext context{poolExecutor(), {}};
    detail::BlockingWait wait;
    begin(context, wait.resumption());
    wait.wait();
    return outcome().take();
  }

  /// Starts it as a task of its own on an executor, the thread pool by default. Any thread.
  Task<T> start(std::shared_ptr<Executor> executor = poolExecutor()) &&;

  /// Awaits it from a coroutine: it then runs in the context of that coroutine.
  auto operator co_await() && noexcept { return Awaiter{handle_}; }

  /// For code that implements waits: `begin` runs it until its first wait and calls the resumption
  /// when it finishes, perhaps inside this call; `outcome` is valid from then on.
  void begin(const TaskContext& context, detail::Resumption resumption) {
    handle_.promise().begin(handle_, context, resumption);
  }
  detail::Outcome<T>& outcome() { return handle_.promise().outcome(); }

 private:
  friend promise_type;

  struct Awaiter {
    std::coroutine_handle<promise_type> handle;

    bool await_ready() const noexcept { return false; }
    template <detail::HasTaskContext Parent>
    void await_suspend(std::coroutine_handle<Parent> parent) {
      handle.promise().beginFor(parent, handle, parent.promise().context());
    }
    T await_resume() { return handle.promise().outcome().take(); }
  };

  explicit Async(std::coroutine_handle<promise_type> handle) noexcept : handle_(handle) {}

  std::coroutine_handle<promise_type> handle_;
};

template <class T>
Async<T> detail::Promise<T>::get_return_object() noexcept {
  return Async<T>(std::coroutine_handle<Promise>::from_promise(*this));
}

inline Async<void> detail::Promise<void>::get_return_object() noexcept {
  return Async<void>(std::coroutine_handle<Promise>::from_promise(*this));
}

}  // namespace ombrix::platform

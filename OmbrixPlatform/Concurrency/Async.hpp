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

/// Destroys a coroutine that does not run. Its frame may hold others, and these again.
void destroyFrame(std::coroutine_handle<> frame) noexcept;

/// Blocks until the resumption was called; pool threads lend their place meanwhile. Costs no system
/// call where that happens first.
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

/// What an asynchronous operation returns: a coroutine that runs once it is awaited, started or
/// got. Move-only; one that is dropped before that never runs.
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

  /// Runs it on the calling thread as far as it goes, then blocks until it is over; gives its
  /// value or throws its exception. Any thread, but not from inside a section of an actor, which
  /// stops the program, nor where it waits for work of the very queue it is called on.
  T get() && {
    const TaskContext context{poolExecutor(), {}};
    detail::BlockingWait wait;
    begin(context, wait.resumption());
    wait.wait();
    return outcome().take();
  }

  /// Starts it on an executor, the thread pool by default, as a task of its own. Any thread.
  Task<T> start(std::shared_ptr<Executor> executor = poolExecutor()) &&;

  /// For awaiting from a coroutine, which it then belongs to: it runs with its context.
  auto operator co_await() && noexcept { return Awaiter{handle_}; }

  /// Building blocks of things that wait: runs until it first waits, and calls the resumption once
  /// it is over, perhaps inside this call; then its outcome.
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

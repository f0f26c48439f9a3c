#pragma once

#include <functional>

#include "OmbrixPlatform/Locks/ThreadSafety.hpp"

namespace ombrix::platform {

/// Registers a function to call when the process ends normally (main returns, or
/// `exit`); the last one registered runs first. A forked child does not call it. Any
/// thread.
void atExit(void (*function)());

/// Whether those functions run or have run: work postponed now is never done. Any thread.
[[nodiscard]] bool isProcessExiting() noexcept;

/// Protects data from a fork while it changes: the child has none of the other threads, so a fork
/// waits until no other thread is inside the gate.
///
/// Stay inside only briefly, and only to change memory: file access, other processes and callbacks
/// would hold up the fork. A `ForkHandler` rebuilds what is held across those. Any thread.
class ForkGate {
 public:
  /// Calls may be nested.
  static void enter() noexcept;
  static void leave() noexcept;

  /// Inside the gate as long as it lives.
  class Pass {
   public:
    Pass() noexcept { enter(); }
    ~Pass() { leave(); }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
  };
};

/// A lock whose holder is inside the gate: no child finds it locked by a thread that does not exist
/// there.
template <class Lock>
class OMBRIX_CAPABILITY("lock") ForkSafe {
 public:
  void lock() noexcept OMBRIX_ACQUIRE() {
    ForkGate::enter();
    lock_.lock();
  }
  void unlock() noexcept OMBRIX_RELEASE() {
    lock_.unlock();
    ForkGate::leave();
  }

 private:
  Lock lock_;
};

/// Calls a function in every child that is forked while the handler lives.
///
/// The function runs before the fork returns, on the child's only thread. It must not take a lock
/// that another thread may have held, nor create or destroy a handler. Leak the objects that it
/// replaces: their destructors may do either. As a member, declare it last.
class ForkHandler {
 public:
  explicit ForkHandler(std::function<void()> inChild);
  ~ForkHandler();
  ForkHandler(const ForkHandler&) = delete;
  ForkHandler& operator=(const ForkHandler&) = delete;

 private:
  struct All;

  const std::function<void()> inChild_;
  ForkHandler* previous_ = nullptr;
  ForkHandler* next_ = nullptr;
};

/// The number of forks, without another program in between, that separate this process from the
/// first one. Any thread.
[[nodiscard]] unsigned forkDepth() noexcept;

/// Whether the process was forked from one that used the thread pool, and runs no other program.
/// The pool starts afresh in it; waiting jobs stay with the parent. Any thread.
[[nodiscard]] bool isForkedFromPool() noexcept;

}  // namespace ombrix::platform

#pragma once

#include <functional>

namespace ombrix::platform {

/// Has a function called when the process ends normally (main returns, or `exit`), before those
/// that were handed in earlier. A process that is forked from this one does not call it. Any
/// thread.
void atExit(void (*function)());

/// Whether those functions run or have run: what is put off now is never done. Any thread.
[[nodiscard]] bool isProcessExiting() noexcept;

/// Keeps whole, in a child that is forked and runs no other program, what threads that do not come
/// along were changing: a fork waits until no other thread is inside.
///
/// Be inside for moments only, and for memory only: files, other processes and calls out would hold
/// up the fork. What is held over those is made anew in the child, by a `ForkHandler`. Any thread.
class ForkGate {
 public:
  /// Calls may nest.
  static void enter() noexcept;
  static void leave() noexcept;

  /// Inside as long as it lives.
  class Pass {
   public:
    Pass() noexcept { enter(); }
    ~Pass() { leave(); }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
  };
};

/// A lock whose holder is inside the gate: no child finds it held by a thread that it does not
/// have.
template <class Lock>
class ForkSafe {
 public:
  void lock() noexcept {
    ForkGate::enter();
    lock_.lock();
  }
  void unlock() noexcept {
    lock_.unlock();
    ForkGate::leave();
  }

 private:
  Lock lock_;
};

/// Has a function called in every child that is forked while it lives.
///
/// The function runs before the fork returns, on the child's only thread. It must neither take a
/// lock that another thread may have held nor make or end a handler; what it replaces is better
/// left behind than ended, for the end of it may do either. As a member, be the last one.
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

/// How many forks, without another program, lie between the process and the one that began. Any
/// thread.
[[nodiscard]] unsigned forkDepth() noexcept;

/// Whether the process was forked from one that used the thread pool, and runs no other program.
/// The pool begins anew in it; jobs that waited stay with the parent. Any thread.
[[nodiscard]] bool isForkedFromPool() noexcept;

}  // namespace ombrix::platform

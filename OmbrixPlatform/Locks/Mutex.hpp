#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Locks/ThreadSafety.hpp"

namespace ombrix::platform {

/// `std::mutex`, known to the checker of `ThreadSafety.hpp`. Any thread.
class OMBRIX_CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() noexcept = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() OMBRIX_ACQUIRE() { native_.lock(); }
  /// Takes the mutex when it is free; false when another thread holds it.
  [[nodiscard]] bool try_lock() OMBRIX_TRY_ACQUIRE(true) { return native_.try_lock(); }
  void unlock() OMBRIX_RELEASE() { native_.unlock(); }

 private:
  template <class Native>
  friend class ConditionOver;

  std::mutex native_;
};

/// Holds a lock (`Mutex`, `FutexLock` and the like) as long as it lives.
template <class Lock>
class OMBRIX_SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(Lock& lock) OMBRIX_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~LockGuard() OMBRIX_RELEASE() { lock_.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Lock& lock_;
};

/// Releases a lock that the caller holds, and takes it again when its own life ends.
template <class Lock>
class OMBRIX_SCOPED_CAPABILITY UnlockGuard {
 public:
  explicit UnlockGuard(Lock& lock) OMBRIX_RELEASE(lock) : lock_(lock) { lock_.unlock(); }
  ~UnlockGuard() OMBRIX_RELEASE() { lock_.lock(); }  // for the checker: what it stood for ends
  UnlockGuard(const UnlockGuard&) = delete;
  UnlockGuard& operator=(const UnlockGuard&) = delete;

 private:
  Lock& lock_;
};

/// Holds a lock, and may release and take it between; what waits for a condition holds one.
template <class Lock>
class OMBRIX_SCOPED_CAPABILITY UniqueLock {
 public:
  explicit UniqueLock(Lock& lock) OMBRIX_ACQUIRE(lock) : native_(lock) {}
  ~UniqueLock() OMBRIX_RELEASE() {}  // as far as it is held
  UniqueLock(const UniqueLock&) = delete;
  UniqueLock& operator=(const UniqueLock&) = delete;

  void lock() OMBRIX_ACQUIRE() { native_.lock(); }
  void unlock() OMBRIX_RELEASE() { native_.unlock(); }

 private:
  template <class Native>
  friend class ConditionOver;

  std::unique_lock<Lock> native_;
};

/// A condition that threads wait for with a lock held: `Condition` with a `Mutex`, `AnyCondition`
/// with any lock.
///
/// The lock is released while a thread waits. A predicate is called with the lock held, and says so
/// (`[this]() OMBRIX_REQUIRES(mutex_) { … }`). Any thread.
template <class Native>
class ConditionOver {
 public:
  void notify_one() noexcept { native_.notify_one(); }
  void notify_all() noexcept { native_.notify_all(); }

  /// Returns when woken, which may be without cause.
  template <class Lock>
  void wait(UniqueLock<Lock>& lock) {
    with(lock, [this](auto& held) { native_.wait(held); });
  }

  /// The same, by the deadline at the latest.
  template <class Lock, class Clock, class Duration>
  std::cv_status wait_until(UniqueLock<Lock>& lock,
                            const std::chrono::time_point<Clock, Duration>& deadline) {
    auto status = std::cv_status::no_timeout;
    with(lock, [&](auto& held) { status = native_.wait_until(held, deadline); });
    return status;
  }

  /// Returns when the predicate holds.
  // Unchecked, as the two below: the predicate's lock is known where it is written.
  template <class Lock, class Predicate>
  void wait(UniqueLock<Lock>& lock, Predicate predicate) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    while (!predicate()) wait(lock);
  }

  /// The same, by the deadline at the latest; gives whether the predicate holds.
  template <class Lock, class Clock, class Duration, class Predicate>
  bool wait_until(UniqueLock<Lock>& lock, const std::chrono::time_point<Clock, Duration>& deadline,
                  Predicate predicate) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    while (!predicate()) {
      if (wait_until(lock, deadline) == std::cv_status::timeout) return predicate();
    }
    return true;
  }

  /// The same, for so long at most.
  template <class Lock, class Rep, class Period, class Predicate>
  bool wait_for(UniqueLock<Lock>& lock, const std::chrono::duration<Rep, Period>& longest,
                Predicate predicate) {
    using Clock = std::chrono::steady_clock;
    return wait_until(lock, Clock::now() + std::chrono::ceil<Clock::duration>(longest),
                      std::move(predicate));
  }

 private:
  // `std::condition_variable` wants the standard's lock of the standard's mutex, and gives it back
  // held.
  template <class Lock, class Wait>
  static void with(UniqueLock<Lock>& lock, Wait wait) {
    if constexpr (std::is_same_v<Native, std::condition_variable>) {
      std::unique_lock held(lock.native_.mutex()->native_, std::adopt_lock);
      wait(held);
      held.release();
    } else {
      wait(lock.native_);
    }
  }

  Native native_;
};

using Condition = ConditionOver<std::condition_variable>;
using AnyCondition = ConditionOver<std::condition_variable_any>;

}  // namespace ombrix::platform

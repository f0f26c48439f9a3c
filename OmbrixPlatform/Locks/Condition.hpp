#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Locks/ThreadSafety.hpp"

namespace ombrix::platform {

/// A condition that threads wait for while they hold a lock: `Condition` with a `Mutex`,
/// `AnyCondition` with any lock.
///
/// The lock is released while a thread waits. A predicate is called with it held, and says so:
///
///     changed_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return isDone_; });
///
/// Any thread.
template <class Native>
class ConditionOver {
 public:
  void notify_one() noexcept { native_.notify_one(); }
  void notify_all() noexcept { native_.notify_all(); }

  /// Returns when woken, which may be without cause.
  template <class Lock>
  void wait(Lock& lock) OMBRIX_REQUIRES(lock) {
    withNative(lock, [this](auto& held) { native_.wait(held); });
  }

  /// The same, by the deadline at the latest.
  template <class Lock, class Clock, class Duration>
  std::cv_status wait_until(Lock& lock, const std::chrono::time_point<Clock, Duration>& deadline)
      OMBRIX_REQUIRES(lock) {
    auto status = std::cv_status::no_timeout;
    withNative(lock, [&](auto& held) { status = native_.wait_until(held, deadline); });
    return status;
  }

  /// Returns when the predicate holds.
  // Not checked inside, as the next one: the predicate knows the lock by its own name.
  template <class Lock, class Predicate>
  void wait(Lock& lock, Predicate predicate)
      OMBRIX_REQUIRES(lock) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    while (!predicate()) wait(lock);
  }

  /// The same, by the deadline at the latest; gives whether the predicate holds.
  template <class Lock, class Clock, class Duration, class Predicate>
  bool wait_until(Lock& lock, const std::chrono::time_point<Clock, Duration>& deadline,
                  Predicate predicate) OMBRIX_REQUIRES(lock) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    while (!predicate()) {
      if (wait_until(lock, deadline) == std::cv_status::timeout) return predicate();
    }
    return true;
  }

  /// The same, within a time.
  template <class Lock, class Rep, class Period, class Predicate>
  bool wait_for(Lock& lock, const std::chrono::duration<Rep, Period>& longest, Predicate predicate)
      OMBRIX_REQUIRES(lock) {
    using Steady = std::chrono::steady_clock;
    return wait_until(lock, Steady::now() + std::chrono::ceil<Steady::duration>(longest),
                      std::move(predicate));
  }

 private:
  // `std::condition_variable` wants the standard's lock of the standard's mutex; it is held again
  // when the wait is over.
  template <class Wait>
  static void withNative(Mutex& lock, Wait wait)
    requires std::is_same_v<Native, std::condition_variable>
  {
    std::unique_lock held(lock.native_, std::adopt_lock);
    wait(held);
    held.release();
  }
  template <class Lock, class Wait>
  static void withNative(Lock& lock, Wait wait) {
    wait(lock);
  }

  Native native_;
};

using Condition = ConditionOver<std::condition_variable>;
using AnyCondition = ConditionOver<std::condition_variable_any>;

}  // namespace ombrix::platform

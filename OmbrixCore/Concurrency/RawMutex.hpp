#pragma once

#include <concepts>
#include <optional>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Locks/ThreadSafety.hpp"

namespace ombrix {

/// A lock around a platform primitive; pairing lock and unlock is the caller's business.
template <class T>
concept RawMutex = requires(T& mutex) {
  typename T::MutexPrimitive;
  { mutex.unsafeMutex() } -> std::same_as<typename T::MutexPrimitive&>;
  { mutex.unbalancedLock() } -> std::same_as<void>;
  { mutex.unbalancedTryLock() } -> std::same_as<bool>;
  { mutex.unbalancedUnlock() } -> std::same_as<void>;
};

/// A lock that is held while a closure runs.
template <class T>
concept ScopedMutex = requires(T& mutex, int (*closure)(), void (*action)()) {
  { mutex.sync(closure) } -> std::same_as<int>;
  { mutex.sync(action) } -> std::same_as<void>;
  { mutex.trySync(closure) } -> std::same_as<std::optional<int>>;
  { mutex.trySync(action) } -> std::same_as<bool>;
};

/// Gives a `RawMutex` the operations of a `ScopedMutex`: derive as
/// `class Lock : public ScopedMutexOperations<Lock>`. Any thread.
template <class Mutex>
class ScopedMutexOperations {
 public:
  /// Runs the closure under the lock and gives its result; an exception releases the lock and
  /// passes through. A closure over guarded data says `OMBRIX_REQUIRES(lock)`.
  template <class Closure>
  // Unchecked, as the next one: the closure knows the lock by its own name.
  decltype(auto) sync(Closure&& closure) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    self().unbalancedLock();
    const Unlock unlock{self()};
    return std::forward<Closure>(closure)();
  }

  /// The same when the lock is free at once, else nothing runs.
  ///
  /// Gives the closure's result as an optional that is empty when the lock was taken; for a
  /// closure without a result, whether it ran.
  template <class Closure>
  auto trySync(Closure&& closure) OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    using Result = std::invoke_result_t<Closure>;
    if constexpr (std::is_void_v<Result>) {
      if (!self().unbalancedTryLock()) return false;
      const Unlock unlock{self()};
      std::forward<Closure>(closure)();
      return true;
    } else {
      using Value = std::remove_cvref_t<Result>;
      if (!self().unbalancedTryLock()) return std::optional<Value>{};
      const Unlock unlock{self()};
      return std::optional<Value>(std::forward<Closure>(closure)());
    }
  }

 private:
  struct Unlock {
    Mutex& mutex;
    ~Unlock() { mutex.unbalancedUnlock(); }
  };

  Mutex& self() { return static_cast<Mutex&>(*this); }
};

}  // namespace ombrix

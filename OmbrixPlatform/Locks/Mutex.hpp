#pragma once

#include <mutex>

#include "OmbrixPlatform/Locks/LockGuard.hpp"
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

}  // namespace ombrix::platform

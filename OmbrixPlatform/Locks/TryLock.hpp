#pragma once

#include <thread>

#include "OmbrixPlatform/Locks/ThreadSafety.hpp"

namespace ombrix::platform {

/// Tries to take a lock that is held for moments only, where waiting for ever is out of the
/// question: the program is stopping, and the thread that stops may hold it itself.
template <class Lock>
[[nodiscard]] bool tryLockRepeatedly(Lock& lock) OMBRIX_TRY_ACQUIRE(true, lock) {
  constexpr int kAttempts = 1000;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (lock.try_lock()) return true;
    std::this_thread::yield();
  }
  return false;
}

}  // namespace ombrix::platform

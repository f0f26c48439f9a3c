#pragma once

#include <mutex>

#include "OmbrixPlatform/Locks/ThreadSafety.hpp"

namespace ombrix::platform {

/// Holds a lock (`Mutex`, `FutexLock` and the like) as long as it lives.
template <class Lock>
class OMBRIX_SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(Lock& lock) OMBRIX_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  /// Takes over a lock that the caller has taken.
  LockGuard(Lock& lock, std::adopt_lock_t) OMBRIX_REQUIRES(lock) : lock_(lock) {}
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

/// Holds a lock, and may release it and take it again before its life ends.
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
  std::unique_lock<Lock> native_;
};

}  // namespace ombrix::platform

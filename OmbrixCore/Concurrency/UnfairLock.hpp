#pragma once

#include "OmbrixCore/Concurrency/RawMutex.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix {

/// A small, fast lock: never recursive, without fairness, waiting threads sleep. Any thread.
class OMBRIX_CAPABILITY("lock") UnfairLock final : public ScopedMutexOperations<UnfairLock> {
 public:
  using MutexPrimitive = platform::FutexLock;

  constexpr UnfairLock() noexcept = default;
  UnfairLock(const UnfairLock&) = delete;
  UnfairLock& operator=(const UnfairLock&) = delete;

  MutexPrimitive& unsafeMutex() noexcept OMBRIX_RETURN_CAPABILITY(lock_) { return lock_; }

  void unbalancedLock() noexcept OMBRIX_ACQUIRE() { lock_.lock(); }
  [[nodiscard]] bool unbalancedTryLock() noexcept OMBRIX_TRY_ACQUIRE(true) {
    return lock_.try_lock();
  }
  void unbalancedUnlock() noexcept OMBRIX_RELEASE() { lock_.unlock(); }

 private:
  platform::FutexLock lock_;
};

static_assert(RawMutex<UnfairLock> && ScopedMutex<UnfairLock>);

}  // namespace ombrix

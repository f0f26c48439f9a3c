#pragma once

#include "OmbrixCore/Concurrency/RawMutex.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"

namespace ombrix {

/// A small, fast lock: never recursive, without fairness, waiting threads sleep. Any thread.
class UnfairLock final : public ScopedMutexOperations<UnfairLock> {
 public:
  using MutexPrimitive = platform::FutexLock;

  constexpr UnfairLock() noexcept = default;
  UnfairLock(const UnfairLock&) = delete;
  UnfairLock& operator=(const UnfairLock&) = delete;

  MutexPrimitive& unsafeMutex() noexcept { return lock_; }

  void unbalancedLock() noexcept { lock_.lock(); }
  [[nodiscard]] bool unbalancedTryLock() noexcept { return lock_.try_lock(); }
  void unbalancedUnlock() noexcept { lock_.unlock(); }

 private:
  platform::FutexLock lock_;
};

static_assert(RawMutex<UnfairLock> && ScopedMutex<UnfairLock>);

}  // namespace ombrix

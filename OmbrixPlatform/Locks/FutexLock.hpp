#pragma once

#include <atomic>
#include <cstdint>

#include "OmbrixPlatform/Locks/LockGuard.hpp"
#include "OmbrixPlatform/Locks/ThreadSafety.hpp"

namespace ombrix::platform {

/// The platform's smallest lock: one word, no spinning, not recursive, no fairness.
///
/// A waiting thread sleeps in the kernel. Meets the standard's Lockable requirements. Any thread;
/// the thread that locked it must unlock it.
class OMBRIX_CAPABILITY("lock") FutexLock {
 public:
  constexpr FutexLock() noexcept = default;
  FutexLock(const FutexLock&) = delete;
  FutexLock& operator=(const FutexLock&) = delete;

  void lock() noexcept OMBRIX_ACQUIRE() {
    std::uint32_t expected = kUnlocked;
    if (!word_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire,
                                       std::memory_order_relaxed)) [[unlikely]] {
      lockContended(expected);
    }
  }

  /// Takes the lock when it is free; false when any thread, including this one, holds it.
  [[nodiscard]] bool try_lock() noexcept OMBRIX_TRY_ACQUIRE(true) {
    std::uint32_t expected = kUnlocked;
    return word_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire,
                                         std::memory_order_relaxed);
  }

  void unlock() noexcept OMBRIX_RELEASE() {
    if (word_.exchange(kUnlocked, std::memory_order_release) == kContended) [[unlikely]]
      wakeOne();
  }

 private:
  static constexpr std::uint32_t kUnlocked = 0;
  static constexpr std::uint32_t kLocked = 1;
  static constexpr std::uint32_t kContended = 2;

  void lockContended(std::uint32_t observed) noexcept;
  void wakeOne() noexcept;

  std::atomic<std::uint32_t> word_{kUnlocked};
};

}  // namespace ombrix::platform

#include "OmbrixPlatform/Locks/FutexLock.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ombrix::platform {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

// A thread that slept marks the lock as contended: it cannot know whether others still sleep, and
// one wake too many costs less than one too few.
void FutexLock::lockContended(std::uint32_t observed) noexcept {
  if (observed != kContended) observed = word_.exchange(kContended, std::memory_order_acquire);
  while (observed != kUnlocked) {
    ::syscall(SYS_futex, &word_, FUTEX_WAIT_PRIVATE, kContended, nullptr, nullptr, 0);
    observed = word_.exchange(kContended, std::memory_order_acquire);
  }
}

void FutexLock::wakeOne() noexcept {
  ::syscall(SYS_futex, &word_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace ombrix::platform

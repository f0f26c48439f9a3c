#include "OmbrixPlatform/Locks/FutexLock.hpp"

#include "OmbrixPlatform/Locks/Futex.hpp"

namespace ombrix::platform {

// A thread that slept marks the lock as contended: it cannot know whether others still sleep, and
// one wake too many costs less than one too few.
void FutexLock::lockContended(std::uint32_t observed) noexcept {
  if (observed != kContended) observed = word_.exchange(kContended, std::memory_order_acquire);
  while (observed != kUnlocked) {
    futexWait(word_, kContended);
    observed = word_.exchange(kContended, std::memory_order_acquire);
  }
}

void FutexLock::wakeOne() noexcept { futexWakeOne(&word_); }

}  // namespace ombrix::platform

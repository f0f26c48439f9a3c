#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace ombrix::platform::detail {

/// How often a thread (or what the events thread waits with) could not be made, and up to which of
/// these failures all was made since.
inline std::atomic<std::uint64_t> shortages{0};
inline std::atomic<std::uint64_t> mendedShortages{0};

/// Whether jobs or timers may wait because a thread could not be made.
inline bool isShortOfThreads() {
  return shortages.load(std::memory_order_relaxed) !=
         mendedShortages.load(std::memory_order_relaxed);
}

/// Notes such a failure; under any lock.
inline void noteThreadShortage() { ++shortages; }

/// Tries again what could not be made; under no lock. For queues that post to the pool or the main
/// loop only when nothing of theirs waits there yet.
void retryAfterShortage();

/// Has a thread of the pool, as soon as there is one, try again until all is made; under no lock.
void retryInPoolAfterShortage();

/// Makes the events thread if something waits for it and it could not be made before.
void retryEventsThread();

constexpr std::chrono::milliseconds kShortestRetryInterval{10};
constexpr std::chrono::milliseconds kLongestRetryInterval{1000};

/// The first part of a wait without end, for the waiting thread may be the only one there is: tries
/// again now and then while threads are short.
/// @param waitFor Waits for so long; true when the wait is over. Called under no lock.
/// @return Whether the wait is over; if not, nothing is short any more.
template <class WaitFor>
bool waitWhileThreadsAreShort(WaitFor waitFor) {
  for (auto interval = kShortestRetryInterval; isShortOfThreads();
       interval = std::min(2 * interval, kLongestRetryInterval)) {
    if (waitFor(interval)) return true;
    retryAfterShortage();
  }
  return false;
}

}  // namespace ombrix::platform::detail

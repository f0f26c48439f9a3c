#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>

/// What is done where a thread, or what one needs, cannot be made: the pool's watcher tries again
/// until it can. Only while that one cannot be made either, whoever posts or waits tries to.
namespace ombrix::platform::detail {

/// Whether the watcher could not be made yet.
inline std::atomic<bool> watcherIsMissing{false};

/// Whether the main queue or the events want a thread since the watcher last tried.
inline std::atomic<bool> isShortOfThreads{false};

/// Notes that; under any lock. `retryAfterShortage` is to follow.
inline void noteThreadShortage() { isShortOfThreads = true; }

/// Sees to it that the watcher tries again. Under no lock.
///
/// While it is missing, a shortage that passes is waited for, 2 s in all of the process.
void leaveToWatcher();
inline void retryAfterShortage() {
  if (watcherIsMissing || isShortOfThreads) leaveToWatcher();
}

/// By the watcher: tries again what was noted, and notes what fails.
void retryNow();

/// Makes the events thread if something waits for it and it could not be made before.
void retryEventsThread();

/// Makes the watcher if it is missing; at once. Under no lock.
void tryToMakeWatcher();

/// The first part of a wait without end, for the waiting thread may be the only one there is: makes
/// the watcher if it is missing.
/// @param waitFor Waits for so long; true when the wait is over. Called under no lock.
/// @return Whether the wait is over.
template <class WaitFor>
bool waitUntilWatched(WaitFor waitFor) {
  constexpr std::chrono::milliseconds kShortest{10}, kLongest{1000};
  for (auto interval = kShortest; watcherIsMissing; interval = std::min(2 * interval, kLongest)) {
    if (waitFor(interval)) return true;
    tryToMakeWatcher();
  }
  return false;
}

}  // namespace ombrix::platform::detail

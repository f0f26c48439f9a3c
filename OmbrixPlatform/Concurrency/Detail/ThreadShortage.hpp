#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>

/// Handles failures to start a thread: the pool's watcher retries until it succeeds. While the
/// watcher itself is missing, each call that posts or waits retries instead.
namespace ombrix::platform::detail {

/// Whether the watcher could not be created yet.
inline std::atomic<bool> watcherIsMissing{false};

/// Whether the main queue or the events have lacked a thread since the watcher last tried.
inline std::atomic<bool> isShortOfThreads{false};

/// Records the shortage; may be called under any lock. Call `retryAfterShortage` afterwards.
inline void noteThreadShortage() { isShortOfThreads = true; }

/// Makes sure that the watcher retries. Call it without a lock.
///
/// While the watcher is missing, waits for the shortage to pass, 2 s in total for the process.
void leaveToWatcher();
inline void retryAfterShortage() {
  if (watcherIsMissing || isShortOfThreads) leaveToWatcher();
}

/// Called by the watcher: retries what was recorded, and records what fails again.
void retryNow();

/// Creates the events thread if something waits for it and an earlier attempt failed.
void retryEventsThread();

/// Creates the watcher at once if it is missing. Call it without a lock.
void tryToMakeWatcher();

/// The first part of an unlimited wait: creates the watcher if it is missing, since the waiting
/// thread may be the only thread that exists.
/// @param waitFor Waits for a given time; true when the wait is over. Called without a lock.
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

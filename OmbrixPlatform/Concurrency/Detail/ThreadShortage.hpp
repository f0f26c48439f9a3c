#pragma once

#include <atomic>

#include "OmbrixPlatform/Concurrency/MainLoop.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::platform::detail {

/// Set when jobs wait because a thread could not be made.
inline std::atomic<bool> threadsAreShort{false};

/// Tries again after such a failure; for queues that post to the pool or the main loop only when
/// nothing of theirs waits there yet.
inline void retryAfterShortage() {
  if (!threadsAreShort.load(std::memory_order_relaxed) || !threadsAreShort.exchange(false)) return;
  ThreadPool::shared().post([] {});
  MainLoop::shared()->post([] {});
}

}  // namespace ombrix::platform::detail

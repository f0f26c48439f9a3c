#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"

#include <thread>

#include "OmbrixPlatform/Concurrency/MainLoop.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::platform::detail {
namespace {

std::atomic<bool> isRetrying{false};  // by a job of the pool

void retryUntilMended() {
  do {
    waitWhileThreadsAreShort([](auto interval) {
      const ThreadPool::BlockingScope blocking;
      std::this_thread::sleep_for(interval);
      return false;
    });
    isRetrying = false;
  } while (isShortOfThreads() && !isRetrying.exchange(true));
}

}  // namespace

void retryAfterShortage() {
  const auto seen = shortages.load();
  if (mendedShortages.load() == seen) return;
  ThreadPool::shared().post([] {});
  MainLoop::shared()->retryOwnThread();
  retryEventsThread();
  if (shortages.load() == seen) mendedShortages = seen;
}

void retryInPoolAfterShortage() {
  if (!isShortOfThreads() || isRetrying.exchange(true)) return;
  ThreadPool::shared().post(retryUntilMended);
}

}  // namespace ombrix::platform::detail

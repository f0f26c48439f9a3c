#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"

#include <thread>

#include "OmbrixPlatform/Concurrency/MainLoop.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::chrono::milliseconds kInterval{10};
std::atomic<int> intervalsLeft{200};

}  // namespace

void leaveToWatcher() {
  while (!ThreadPool::shared().ensureWatch() && intervalsLeft > 0) {
    --intervalsLeft;
    std::this_thread::sleep_for(kInterval);
  }
}

void retryNow() {
  isShortOfThreads = false;
  MainLoop::retryOwnThreads();
  retryEventsThread();
}

void tryToMakeWatcher() { ThreadPool::shared().ensureWatch(); }

}  // namespace ombrix::platform::detail

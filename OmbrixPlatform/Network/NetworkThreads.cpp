#include "OmbrixPlatform/Network/Detail/NetworkThreads.hpp"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <utility>

#include "OmbrixPlatform/Concurrency/AtExit.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kMostEnding = 8;
constexpr std::chrono::seconds kLongestWaitAtExit{1};

std::atomic<bool> isChild = false;

}  // namespace

NetworkThreads& NetworkThreads::shared() {
  // Leaked: sessions may still run while the process ends.
  static NetworkThreads& threads = *[] {
    ::pthread_atfork(nullptr, nullptr, [] { isChild = true; });
    atExit([] { shared().joinEnding(); });
    return new NetworkThreads;
  }();
  return threads;
}

void NetworkThreads::start(std::move_only_function<void()> body) {
  std::list<std::thread> ended;
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ending_ < kMostEnding; });
    ended.swap(ended_);
    const auto self = running_.emplace(running_.end());
    try {
      *self = std::thread([this, self, body = std::move(body)]() mutable { run(self, body); });
    } catch (...) {
      running_.erase(self);
      ended_.splice(ended_.end(), ended);
      throw;
    }
  }
  for (std::thread& thread : ended) thread.join();
}

void NetworkThreads::run(std::list<std::thread>::iterator self,
                         std::move_only_function<void()>& body) {
  body();
  body = nullptr;
  const std::lock_guard lock(mutex_);
  ended_.splice(ended_.end(), running_, self);
  --ending_;
  changed_.notify_all();
}

void NetworkThreads::joinEnding() {
  std::list<std::thread> ended;
  {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kLongestWaitAtExit, [this] { return ending_ == 0; });
    ended.swap(ended_);
  }
  for (std::thread& thread : ended) thread.join();
}

void NetworkThreads::oneEnds() {
  const std::lock_guard lock(mutex_);
  ++ending_;
}

bool isForkedChild() noexcept { return isChild; }

}  // namespace ombrix::platform::detail

#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <utility>

#include "OmbrixPlatform/Concurrency/Process.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kMostEnding = 8;
constexpr std::chrono::seconds kLongestWaitAtExit{1};

std::atomic<bool> isChild = false;

}  // namespace

NetworkThreads& NetworkThreads::shared() {
  // Leaked: sessions may still run while the process ends.
  static NetworkThreads& threads = *[] {
    [[maybe_unused]] static const auto& forks = *new ForkHandler([] { isChild = true; });
    atExit([] { shared().joinEnding(); });
    return new NetworkThreads;
  }();
  return threads;
}

NetworkThreads::Number NetworkThreads::start(std::move_only_function<void()> body) {
  std::list<Member> ended;
  Number number = 0;
  {
    const LockGuard lock(mutex_);
    changed_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return ending_ < kMostEnding; });
    ended.swap(ended_);
    number = ++last_;
    const auto self = running_.insert(running_.end(), {number, {}});
    try {
      self->thread =
          std::thread([this, self, body = std::move(body)]() mutable { run(self, body); });
    } catch (...) {
      running_.erase(self);
      ended_.splice(ended_.end(), ended);
      throw;
    }
  }
  for (Member& member : ended) member.thread.join();
  return number;
}

void NetworkThreads::join(Number number) {
  std::list<Member> ended;
  const auto isIt = [number](const Member& member) { return member.number == number; };
  {
    const LockGuard lock(mutex_);
    changed_.wait(mutex_,
                  [&]() OMBRIX_REQUIRES(mutex_) { return std::ranges::none_of(running_, isIt); });
    const auto found = std::ranges::find_if(ended_, isIt);
    // Otherwise another thread has joined it, or is about to.
    if (found != ended_.end()) ended.splice(ended.end(), ended_, found);
  }
  for (Member& member : ended) member.thread.join();
}

void NetworkThreads::run(std::list<Member>::iterator self, std::move_only_function<void()>& body) {
  body();
  body = nullptr;
  const LockGuard lock(mutex_);
  ended_.splice(ended_.end(), running_, self);
  --ending_;
  changed_.notify_all();
}

void NetworkThreads::joinEnding() {
  std::list<Member> ended;
  {
    const LockGuard lock(mutex_);
    changed_.wait_for(mutex_, kLongestWaitAtExit,
                      [this]() OMBRIX_REQUIRES(mutex_) { return ending_ == 0; });
    ended.swap(ended_);
  }
  for (Member& member : ended) member.thread.join();
}

void NetworkThreads::oneEnds() {
  const LockGuard lock(mutex_);
  ++ending_;
}

bool isForkedChild() noexcept { return isChild; }

}  // namespace ombrix::platform::detail

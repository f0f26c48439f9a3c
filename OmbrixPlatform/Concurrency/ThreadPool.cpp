#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMinimumWidth = 4;
constexpr std::size_t kMaximumThreads = 512;
constexpr auto kStallCheckInterval = 4ms;
constexpr auto kSurplusIdleTime = 5s;
// Every so often the lowest lane goes first, so that a busy high lane delays but never starves it.
constexpr std::uint64_t kLowestFirstEvery = 64;

thread_local bool isPoolThread = false;
thread_local unsigned blockingDepth = 0;

std::size_t laneOf(DispatchPriority priority) {
  switch (priority) {
    case DispatchPriority::high:
      return 0;
    case DispatchPriority::normal:
      return 1;
    case DispatchPriority::low:
      return 2;
    case DispatchPriority::background:
      return 3;
  }
  fatalError("unknown dispatch priority");
}

}  // namespace

ThreadPool& ThreadPool::shared() {
  static ThreadPool& pool = *new ThreadPool;
  return pool;
}

Executor& ThreadPool::executor() {
  class DefaultLane final : public Executor {
    void post(Job job) override { ThreadPool::shared().post(std::move(job)); }
  };
  static DefaultLane& lane = *new DefaultLane;
  return lane;
}

ThreadPool::ThreadPool()
    : width_(std::max<std::size_t>(std::thread::hardware_concurrency(), kMinimumWidth)) {}

std::size_t ThreadPool::threadCount() const {
  const std::lock_guard lock(mutex_);
  return threads_;
}

void ThreadPool::post(Job job, DispatchPriority priority) {
  std::unique_lock lock(mutex_);
  lanes_[laneOf(priority)].push_back(std::move(job));
  ++waiting_;
  ensureThread(lock);
}

// Called with the lock held and jobs waiting; may release the lock.
void ThreadPool::ensureThread(std::unique_lock<std::mutex>& lock) {
  if (idle_ > wakes_) {
    ++wakes_;
    lock.unlock();
    jobPosted_.notify_one();
    return;
  }
  if (idle_ > 0) return;
  if (active() < width_) {
    spawn();
    return;
  }
  if (!watcherExists_) {
    watcherExists_ = true;
    std::thread([this] { watchForStalls(); }).detach();
  } else if (watcherSleeps_) {
    watcherSleeps_ = false;
    saturated_.notify_one();
  }
}

bool ThreadPool::spawn() {
  if (threads_ >= kMaximumThreads) return false;
  try {
    std::thread([this] { work(); }).detach();
  } catch (const std::system_error& error) {
    if (threads_ == 0) fatalError(error.what());
    return false;  // the threads there are will get to the job
  }
  ++threads_;
  return true;
}

bool ThreadPool::takeJob(Job& job) {
  if (waiting_ == 0) return false;
  auto take = [&](std::deque<Job>& lane) {
    job = std::move(lane.front());
    lane.pop_front();
    --waiting_;
    return true;
  };
  auto hasJobs = [](const std::deque<Job>& lane) { return !lane.empty(); };
  if (++taken_ % kLowestFirstEvery == 0) {
    return take(*std::find_if(lanes_.rbegin(), lanes_.rend(), hasJobs));
  }
  return take(*std::find_if(lanes_.begin(), lanes_.end(), hasJobs));
}

void ThreadPool::work() {
  isPoolThread = true;
  std::unique_lock lock(mutex_);
  for (;;) {
    Job job;
    if (takeJob(job)) {
      // The poster counted on an idle thread that has since found other work.
      if (waiting_ > 0 && idle_ == 0) ensureThread(lock);
      lock.unlock();
      job();
      job = nullptr;  // what it captured is released outside the lock
      lock.lock();
      continue;
    }
    ++idle_;
    const bool isSurplus = threads_ > width_;
    auto wakened = [this] { return wakes_ > 0; };
    const bool woke = isSurplus ? jobPosted_.wait_for(lock, kSurplusIdleTime, wakened)
                                : (jobPosted_.wait(lock, wakened), true);
    --idle_;
    if (woke) {
      --wakes_;
    } else if (waiting_ == 0) {
      --threads_;
      return;
    }
  }
}

void ThreadPool::watchForStalls() {
  std::size_t burst = 1;
  std::size_t spawned = 0;
  std::unique_lock lock(mutex_);
  for (;;) {
    if (waiting_ == 0) {
      watcherSleeps_ = true;
      saturated_.wait(lock, [this] { return !watcherSleeps_; });
    }
    const std::uint64_t before = taken_;
    lock.unlock();
    std::this_thread::sleep_for(kStallCheckInterval);
    lock.lock();
    // Jobs that only the newest threads took up are no progress of the others.
    const bool isStalled = waiting_ > 0 && idle_ == 0 && taken_ - before <= spawned;
    burst = isStalled ? 2 * burst : 1;
    spawned = 0;
    while (isStalled && spawned < std::min(burst, waiting_) && spawn()) ++spawned;
  }
}

ThreadPool::BlockingScope::BlockingScope() : isInPool_(isPoolThread && blockingDepth++ == 0) {
  if (!isInPool_) return;
  ThreadPool& pool = shared();
  std::unique_lock lock(pool.mutex_);
  ++pool.blocked_;
  if (pool.waiting_ > 0) pool.ensureThread(lock);
}

ThreadPool::BlockingScope::~BlockingScope() {
  if (isPoolThread) --blockingDepth;
  if (!isInPool_) return;
  ThreadPool& pool = shared();
  const std::lock_guard lock(pool.mutex_);
  --pool.blocked_;
}

}  // namespace ombrix::platform

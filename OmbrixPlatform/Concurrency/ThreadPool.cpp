#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <optional>
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
constexpr unsigned kJobsLeft = 4;     // to a thread by a job of its own
constexpr unsigned kQuietChecks = 3;  // without a waiting job, before the checks cease
constexpr auto kSurplusIdleTime = 5s;
// Every so often the lowest lane goes first, so that a busy high lane delays but never starves it.
constexpr std::uint64_t kLowestFirstEvery = 64;

thread_local bool isPoolThread = false;
thread_local unsigned blockingDepth = 0;
thread_local unsigned jobsToLeave = 0;  // to this thread, for when its job has ended

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

/// Where an idle thread sleeps. All but the sleep itself happens under the pool's lock.
class ThreadPool::Parking {
 public:
  /// Sleeps until `wake` or, unless it was chosen, until so much time has passed.
  void sleep(std::optional<std::chrono::seconds> limit) {
    timespec time{};
    if (limit) time.tv_sec = limit->count();
    while (isAwake_.load(std::memory_order_acquire) == 0) {
      const auto outcome = ::syscall(SYS_futex, &isAwake_, FUTEX_WAIT_PRIVATE, 0,
                                     limit ? &time : nullptr, nullptr, 0);
      if (outcome != 0 && errno == ETIMEDOUT) return;
    }
  }

  /// Without the lock, by whoever chose it. The thread may be gone before the kernel is asked,
  /// which needs the address as a number only.
  void wake() {
    isAwake_.store(1, std::memory_order_release);
    ::syscall(SYS_futex, &isAwake_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
  }

  Parking* next = nullptr;
  bool isChosen = false;  // taken off the list, and about to be woken

 private:
  std::atomic<std::uint32_t> isAwake_{0};
};

ThreadPool::ThreadPool()
    : width_(std::max<std::size_t>(std::thread::hardware_concurrency(), kMinimumWidth)) {}

std::size_t ThreadPool::threadCount() const {
  const std::lock_guard lock(lock_);
  return threads_;
}

void ThreadPool::post(Job job, DispatchPriority priority) {
  Lock lock(lock_);
  lanes_[laneOf(priority)].push_back(std::move(job));
  if (++waiting_ <= kJobsLeft && jobsToLeave > 0) {
    --jobsToLeave;
    ensureWatcher();
  } else {
    ensureThread(lock);
  }
}

// Called with the lock held and jobs waiting; may release the lock.
void ThreadPool::ensureThread(Lock& lock) {
  if (isWaking_) return;  // it sees to the jobs behind the one it takes
  if (Parking* const parking = parked_) {
    parked_ = parking->next;
    parking->isChosen = true;
    --idle_;
    isWaking_ = true;
    lock.unlock();
    parking->wake();
  } else if (active() < width_) {
    spawn();
  } else {
    ensureWatcher();
  }
}

void ThreadPool::ensureWatcher() {
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
  Lock lock(lock_);
  do {
    Job job;
    while (takeJob(job)) {
      if (waiting_ > 0) ensureThread(lock);
      if (lock.owns_lock()) lock.unlock();
      jobsToLeave = kJobsLeft;
      job();
      job = nullptr;  // what it captured is released outside the lock
      jobsToLeave = 0;
      lock.lock();
    }
  } while (park(lock));
}

// False when the thread is to end.
bool ThreadPool::park(Lock& lock) {
  Parking parking;
  parking.next = std::exchange(parked_, &parking);
  ++idle_;
  const bool isSurplus = threads_ > width_;
  lock.unlock();
  parking.sleep(isSurplus ? std::optional(kSurplusIdleTime) : std::nullopt);
  lock.lock();
  if (parking.isChosen) {
    if (isSurplus) {  // its time may have passed just then
      lock.unlock();
      parking.sleep(std::nullopt);
      lock.lock();
    }
    isWaking_ = false;
    return true;
  }
  Parking** link = &parked_;
  while (*link != &parking) link = &(*link)->next;
  *link = parking.next;
  --idle_;
  if (waiting_ > 0) return true;
  --threads_;
  return false;
}

void ThreadPool::watchForStalls() {
  std::size_t burst = 1;
  std::size_t spawned = 0;
  unsigned quietChecks = 0;
  Lock lock(lock_);
  for (;;) {
    quietChecks = waiting_ == 0 ? quietChecks + 1 : 0;
    if (quietChecks > kQuietChecks) {
      watcherSleeps_ = true;
      saturated_.wait(lock, [this] { return !watcherSleeps_; });
      quietChecks = 0;
    }
    const std::uint64_t before = taken_;
    lock.unlock();
    std::this_thread::sleep_for(kStallCheckInterval);
    lock.lock();
    // Jobs that only the newest threads took up are no progress of the others.
    const bool isStalled = waiting_ > 0 && !isWaking_ && taken_ - before <= spawned;
    burst = isStalled ? 2 * burst : 1;
    spawned = 0;
    if (isStalled && parked_) {
      ensureThread(lock);  // a job that was left to a thread whose own one lasts
      lock.lock();
      continue;
    }
    while (isStalled && spawned < std::min(burst, waiting_) && spawn()) ++spawned;
  }
}

ThreadPool::BlockingScope::BlockingScope() : isInPool_(isPoolThread && blockingDepth++ == 0) {
  jobsToLeave = 0;
  if (!isInPool_) return;
  ThreadPool& pool = shared();
  Lock lock(pool.lock_);
  ++pool.blocked_;
  if (pool.waiting_ > 0) pool.ensureThread(lock);
}

ThreadPool::BlockingScope::~BlockingScope() {
  if (isPoolThread) --blockingDepth;
  if (!isInPool_) return;
  ThreadPool& pool = shared();
  const std::lock_guard lock(pool.lock_);
  --pool.blocked_;
}

}  // namespace ombrix::platform

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <climits>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Concurrency/Detail/Turn.hpp"
#include "OmbrixPlatform/Concurrency/InsideScope.hpp"
#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Locks/Futex.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMinimumWidth = 4;
constexpr std::size_t kMaximumThreads = 512;
constexpr auto kStallCheckInterval = 4ms;
constexpr unsigned kQuietChecks = 3;  // without a waiting job, before the checks stop
constexpr auto kSurplusIdleTime = 5s;
constexpr std::chrono::milliseconds kLongestRetryInterval{100};

// A lane gets its turn after this many jobs of higher lanes.
constexpr std::array<unsigned, 4> kPatience{UINT_MAX, 7, 15, 31};

thread_local unsigned blockingDepth = 0;

constexpr std::size_t kNormalLane = 1;
thread_local std::size_t currentLane = kNormalLane;

// Of the job that the calling thread of the pool runs; see `PoolJob`.
thread_local bool runsJob = false;
thread_local bool isJobEnding = false;
thread_local bool owesWake = false;  // something was posted since then, or waits to follow

bool isForked = false;

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

DispatchPriority detail::currentPriority() noexcept {
  using enum DispatchPriority;
  constexpr std::array kPriorities{high, normal, low, background};
  return kPriorities[currentLane];
}

void detail::PoolJob::endsSoon() noexcept { isJobEnding = runsJob && blockingDepth == 0; }

bool detail::PoolJob::isEnding() noexcept { return isJobEnding; }

void detail::PoolJob::goesOn() noexcept {
  isJobEnding = false;
  if (!owesWake) return;
  const ThreadPool::BlockingScope lendsItsPlace;  // for a moment: others take what waits
}

ThreadPool& ThreadPool::shared() {
  static ThreadPool& pool = *new ThreadPool;
  // A forked child leaks the old pool: its lock may be held, its threads no longer exist, and its
  // jobs belong to the parent.
  [[maybe_unused]] static const auto& onFork =
      *new ForkHandler([]() OMBRIX_NO_THREAD_SAFETY_ANALYSIS {  // there is one thread
        ::new (static_cast<void*>(&pool)) ThreadPool;
        isForked = true;
        if (!worker) return;
        worker->threadID = ::gettid();
        worker->previous = worker->next = nullptr;
        ::new (static_cast<void*>(&worker->following)) Posted;
        pool.workers_ = worker;
        pool.threads_ = 1;
        pool.blocked_ = worker->isBusy ? 0 : 1;
      });
  return pool;
}

bool isForkedFromPool() noexcept { return isForked; }

Executor& ThreadPool::executor() {
  class DefaultLane final : public Executor {
    void post(Job job) override { ThreadPool::shared().post(std::move(job)); }
  };
  static DefaultLane& lane = *new DefaultLane;
  return lane;
}

/// Where an idle thread sleeps. Everything but the sleep itself happens under the pool's lock.
class ThreadPool::Parking {
 public:
  /// Sleeps until `wake` or, unless it was chosen, until the limit has passed.
  void sleep(std::optional<std::chrono::seconds> limit) {
    while (isAwake_.load(std::memory_order_acquire) == 0) {
      if (!futexWait(isAwake_, 0, limit)) return;
    }
  }

  /// Called without the lock by the thread that chose it. The parked thread may be gone before the
  /// kernel is called.
  void wake() {
    isAwake_.store(1, std::memory_order_release);
    futexWakeOne(&isAwake_);
  }

  Parking* next = nullptr;
  bool isChosen = false;  // taken off the list, and about to be woken

 private:
  std::atomic<std::uint32_t> isAwake_{0};
};

constinit thread_local ThreadPool::Worker* ThreadPool::worker = nullptr;

ThreadPool::ThreadPool()
    : width_(std::max<std::size_t>(std::thread::hardware_concurrency(), kMinimumWidth)) {}

std::size_t ThreadPool::threadCount() const {
  const LockGuard lock(lock_);
  return threads_;
}

void ThreadPool::post(Job&& job, DispatchPriority priority, const void* inside) {
  const auto lane = laneOf(priority);
  Parking* woken = nullptr;
  {
    const LockGuard lock(lock_);
    push(lane, {std::move(job), inside});
    if (isJobEnding && blockingDepth == 0) {
      owesWake = true;
    } else {
      woken = ensureThread();
    }
  }
  if (woken) woken->wake();
  detail::retryAfterShortage();
}

void ThreadPool::postNext(Job&& job, DispatchPriority priority, const void* inside) {
  if (!worker || blockingDepth > 0 || worker->following.job || hasMoreUrgentThan(priority)) {
    return post(std::move(job), priority, inside);
  }
  if (isJobEnding) owesWake = true;
  worker->following = {std::move(job), inside};
  worker->laneOfFollowing = laneOf(priority);
}

void ThreadPool::push(std::size_t lane, Posted&& posted) {
  lanes_[lane].push_back(std::move(posted));
  ++waiting_;
  lanesWaiting_.store(lanesWaiting_.load(std::memory_order_relaxed) | (1U << lane),
                      std::memory_order_relaxed);
}

bool ThreadPool::ensureWatch() {
  const LockGuard lock(lock_);
  ensureWatcher();
  return watcherExists_;
}

bool ThreadPool::hasWaiting() const noexcept {
  return lanesWaiting_.load(std::memory_order_relaxed) != 0;
}

bool ThreadPool::hasMoreUrgentThan(DispatchPriority priority) const noexcept {
  const unsigned higher = (1U << laneOf(priority)) - 1;
  return (lanesWaiting_.load(std::memory_order_relaxed) & higher) != 0;
}

// Called with jobs waiting; returns the thread that the caller must wake without the lock.
ThreadPool::Parking* ThreadPool::ensureThread() {
  if (isWaking_) return nullptr;  // the woken thread sees to the jobs behind the one it takes
  if (Parking* const parking = parked_) {
    parked_ = parking->next;
    parking->isChosen = true;
    --idle_;
    isWaking_ = true;
    return parking;
  }
  if (active() >= width_ || !spawn() || !watcherExists_) ensureWatcher();
  return nullptr;
}

// The watcher exists from the first job on: without it, nothing would retry to create a thread once
// all threads are blocked and the system had none left for a while.
void ThreadPool::ensureWatcher() {
  if (!watcherExists_) {
    try {
      std::thread([this] { watchForStalls(); }).detach();
      watcherExists_ = true;
    } catch (const std::exception&) {
    }
    detail::watcherIsMissing = !watcherExists_;
  } else if (watcherSleeps_) {
    watcherSleeps_ = false;
    saturated_.notify_one();
  }
}

bool ThreadPool::spawn() {
  if (threads_ >= kMaximumThreads) return false;
  try {
    std::thread([this] { work(); }).detach();
  } catch (const std::exception&) {
    return false;  // the existing threads will reach the job, or the watcher retries
  }
  ++threads_;
  return true;
}

// Takes from the highest lane whose turn has come, else from the highest lane.
bool ThreadPool::takeJob(Posted& posted) {
  if (waiting_ == 0) return false;
  const unsigned lanes = lanesWaiting_.load(std::memory_order_relaxed);
  auto chosen = static_cast<std::size_t>(std::countr_zero(lanes));
  for (auto rest = lanes; rest != 0; rest &= rest - 1) {
    const auto lane = static_cast<std::size_t>(std::countr_zero(rest));
    if (passedOver_[lane] < kPatience[lane]) continue;
    chosen = lane;
    break;
  }
  for (auto passed = lanes & ~((2U << chosen) - 1); passed != 0; passed &= passed - 1) {
    ++passedOver_[static_cast<std::size_t>(std::countr_zero(passed))];
  }
  passedOver_[chosen] = 0;
  currentLane = chosen;
  auto& lane = lanes_[chosen];
  posted = std::move(lane.front());
  lane.pop_front();
  if (lane.empty()) lanesWaiting_.store(lanes & ~(1U << chosen), std::memory_order_relaxed);
  --waiting_;
  return true;
}

void ThreadPool::work() {
  Worker self;
  self.threadID = ::gettid();
  worker = &self;
  const LockGuard lock(lock_);
  self.next = std::exchange(workers_, &self);
  if (self.next) self.next->previous = &self;
  do {
    Posted posted;
    while (takeJob(posted)) {
      self.isBusy = true;
      Parking* const woken = waiting_ > 0 ? ensureThread() : nullptr;
      {
        const UnlockGuard unlocked(lock_);
        if (woken) woken->wake();
        for (;;) {
          {
            const detail::InsideScope scope(posted.inside);
            runsJob = true;
            callOut("a job", posted.job);
            posted.job = nullptr;  // release its captures outside the lock
            runsJob = isJobEnding = false;
          }
          if (!self.following.job) break;
          posted = std::move(self.following);
          currentLane = self.laneOfFollowing;
        }
      }
      self.isBusy = false;
      owesWake = false;  // this thread looks itself
    }
  } while (park());
  (self.previous ? self.previous->next : workers_) = self.next;
  if (self.next) self.next->previous = self.previous;
  worker = nullptr;  // code that runs at the end of the thread is no longer part of the pool
}

// False when the thread should end.
bool ThreadPool::park() {
  Parking parking;
  parking.next = std::exchange(parked_, &parking);
  ++idle_;
  const bool isSurplus = threads_ > width_;
  {
    const UnlockGuard unlocked(lock_);
    parking.sleep(isSurplus ? std::optional(kSurplusIdleTime) : std::nullopt);
  }
  if (parking.isChosen) {
    if (isSurplus) {  // its time may have passed just then
      const UnlockGuard unlocked(lock_);
      parking.sleep(std::nullopt);
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

/// Finds blocked threads: those that were neither running nor ready to run between two checks.
class ThreadPool::Stalls {
 public:
  /// The number of these threads that have been blocked since the previous check.
  std::size_t look(const std::vector<int>& threadIDs) {
    std::unordered_map<int, std::string> times;
    std::size_t blocked = 0;
    for (const int id : threadIDs) {
      // Its time on a processor, its time waiting for one, and how often it got one. A value that
      // cannot be read counts as no progress: without the kernel's data every stall counts.
      auto now = read(id, "schedstat");
      const auto before = times_.find(id);
      if (before != times_.end() && before->second == now && !isReadyToRun(id)) ++blocked;
      times.emplace(id, std::move(now));
    }
    times_ = std::move(times);
    return blocked;
  }

  void forget() { times_.clear(); }

 private:
  static std::string read(int id, const char* file) {
    const auto path = "/proc/self/task/" + std::to_string(id) + "/" + file;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return {};
    std::array<char, 512> text;
    const auto length = ::read(descriptor, text.data(), text.size());
    ::close(descriptor);
    return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
  }

  // A thread's times grow only when it gets a processor or leaves it; its state is current.
  static bool isReadyToRun(int id) {
    const auto text = read(id, "stat");
    const auto nameEnd = text.rfind(')');
    return nameEnd != std::string::npos && text.substr(nameEnd, 3) == ") R";
  }

  std::unordered_map<int, std::string> times_;
};

void ThreadPool::watchForStalls() {
  Stalls stalls;
  unsigned quietChecks = 0;
  std::chrono::milliseconds interval = kStallCheckInterval;
  std::vector<int> busy;
  UniqueLock lock(lock_);
  for (;;) {
    const bool isShort = detail::isShortOfThreads;
    quietChecks = waiting_ == 0 && !isShort ? quietChecks + 1 : 0;
    if (quietChecks > kQuietChecks) {
      stalls.forget();
      watcherSleeps_ = true;
      saturated_.wait(lock_, [this]() OMBRIX_REQUIRES(lock_) { return !watcherSleeps_; });
      quietChecks = 0;
    }
    busy.clear();
    if (waiting_ > 0 && !parked_) {
      for (const auto* each = workers_; each; each = each->next) {
        if (each->isBusy) busy.push_back(each->threadID);
      }
    }
    lock.unlock();
    if (isShort) detail::retryNow();
    const auto blocked = stalls.look(busy);
    lock.lock();
    // Read without the lock: some may have ended their jobs, which the next check will see. Besides
    // the blocked threads this replaces those that could not be created before.
    const std::size_t missing = width_ - std::min(width_, active());
    std::size_t wanted = std::min(waiting_, std::max(blocked, missing));
    while (wanted > 0 && !parked_ && active() < width_ + blocked && spawn()) --wanted;
    const bool isLazy = isShort && waiting_ == 0;
    lock.unlock();
    interval = isLazy ? std::min(2 * interval, kLongestRetryInterval) : kStallCheckInterval;
    std::this_thread::sleep_for(interval);
    lock.lock();
  }
}

ThreadPool::BlockingScope::BlockingScope() : isInPool_(worker && blockingDepth++ == 0) {
  if (!isInPool_) return;
  isJobEnding = owesWake = false;
  ThreadPool& pool = shared();
  Parking* woken = nullptr;
  {
    const LockGuard lock(pool.lock_);
    ++pool.blocked_;
    worker->isBusy = false;
    if (worker->following.job) pool.push(worker->laneOfFollowing, std::move(worker->following));
    if (pool.waiting_ > 0) woken = pool.ensureThread();
  }
  if (woken) woken->wake();
}

ThreadPool::BlockingScope::~BlockingScope() {
  if (worker) --blockingDepth;
  if (!isInPool_) return;
  ThreadPool& pool = shared();
  const LockGuard lock(pool.lock_);
  --pool.blocked_;
  worker->isBusy = true;
}

}  // namespace ombrix::platform

#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"

namespace ombrix::platform {

/// The lane of the pool a job waits in; a higher lane is served first.
///
/// No lane starves, and none passes a higher one beyond its share: of the jobs that are taken while
/// higher lanes have some waiting, one in 8 is of the normal lane, one in 16 of the low one and one
/// in 32 of the background; a little less often where several of these lanes are due at once.
enum class DispatchPriority : std::int16_t {
  high = 2,
  normal = 0,
  low = -2,
  background = INT16_MIN,
};

/// The process-wide threads behind every queue and task.
///
/// As many jobs run at once as there are processors (at least 4). Jobs that block do not starve
/// the others: a `BlockingScope` lends its place to another thread at once, and a thread that
/// blocks without one (it neither ran nor was ready to run for some milliseconds while jobs wait)
/// is replaced likewise, up to 512 threads. Computing makes no threads. Surplus threads end after
/// idling. No thread exists before the first job. Where none can be made, jobs wait, and a thread
/// that watches over the others, made with the first one, tries again. Posting waits for that one
/// if it cannot be made, up to 2 s in all of the process; after that the next post tries, and
/// whoever waits in this library. Threads that idle at process exit are abandoned; nothing is torn
/// down.
class ThreadPool final {
 public:
  static ThreadPool& shared();

  /// Any thread. Jobs of one lane start in the order of their posting.
  ///
  /// @param inside What the thread is inside of while the job runs: the queue that posts it.
  void post(Job&& job, DispatchPriority priority = DispatchPriority::normal,
            const void* inside = nullptr);

  /// As `post`, by the last act of a job: unless something more urgent waits, the calling thread
  /// runs it right after that job, which spares a queue and a thread that would be woken. Where
  /// that job blocks after all, and says so, it goes to the others.
  void postNext(Job&& job, DispatchPriority priority = DispatchPriority::normal,
                const void* inside = nullptr);

  /// Whether jobs of any lane wait.
  [[nodiscard]] bool hasWaiting() const noexcept;

  /// Whether jobs of a higher lane wait: whoever runs many jobs in one ends its turn then.
  [[nodiscard]] bool hasMoreUrgentThan(DispatchPriority priority) const noexcept;

  /// The pool's default lane as an executor, which lives for the whole process.
  static Executor& executor();

  /// Threads alive now, idle ones included.
  [[nodiscard]] std::size_t threadCount() const;

  /// Has what could not be made for want of a thread tried again, soon and until it is made; false
  /// when that takes a thread which cannot be made either. Any thread.
  bool ensureWatch();

  /// Tells the pool that the calling thread is about to block; no effect outside the pool.
  class BlockingScope {
   public:
    BlockingScope();
    ~BlockingScope();
    BlockingScope(const BlockingScope&) = delete;
    BlockingScope& operator=(const BlockingScope&) = delete;

   private:
    bool isInPool_;
  };

 private:
  static constexpr std::size_t kLanes = 4;

  class Parking;
  class Stalls;
  using Lock = std::unique_lock<FutexLock>;

  struct Posted {
    Job job;
    const void* inside = nullptr;
  };

  // A thread of the pool.
  struct Worker {
    int threadID = 0;
    bool isBusy = false;  // with a job, and not blocked by its own account
    Posted following;     // runs right after the job, if there is one
    std::size_t laneOfFollowing = 0;
    Worker* previous = nullptr;
    Worker* next = nullptr;
  };
  static thread_local Worker* worker;  // of the calling thread, if it is one

  ThreadPool();
  void work();
  void watchForStalls();
  void ensureWatcher();
  void push(std::size_t lane, Posted&& posted);
  void ensureThread(Lock& lock);
  bool spawn();
  bool park(Lock& lock);
  bool takeJob(Posted& posted);
  [[nodiscard]] std::size_t active() const { return threads_ - idle_ - blocked_; }

  mutable FutexLock lock_;  // guards what follows
  std::array<std::deque<Posted>, kLanes> lanes_;
  std::atomic<unsigned> lanesWaiting_{0};      // a bit for each; read without the lock
  std::array<unsigned, kLanes> passedOver_{};  // how often higher lanes were served since its turn
  std::size_t waiting_ = 0;
  std::size_t threads_ = 0;
  std::size_t idle_ = 0;  // parked
  Worker* workers_ = nullptr;
  Parking* parked_ = nullptr;  // the last one to park first
  bool isWaking_ = false;      // one was woken and has not yet looked for a job
  std::size_t blocked_ = 0;    // by their own account
  bool watcherExists_ = false;
  bool watcherSleeps_ = false;
  std::condition_variable_any saturated_;
  const std::size_t width_;
};

}  // namespace ombrix::platform

#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix::platform {

/// The lane of the pool a job waits in; a higher lane is served first.
///
/// No lane starves, and none takes more than its share from a higher one: of the jobs taken while
/// higher lanes have some waiting, one in 8 is of the normal lane, one in 16 of the low and one in
/// 32 of the background lane; slightly fewer where several of these lanes are due at once.
enum class DispatchPriority : std::int16_t {
  high = 2,
  normal = 0,
  low = -2,
  background = INT16_MIN,
};

/// The process-wide threads behind every queue and task.
///
/// Runs as many jobs at once as there are processors (at least 4). Blocking jobs do not starve the
/// others: a `BlockingScope` lends its place to another thread at once, and a thread that blocks
/// without one (neither running nor ready to run for some milliseconds while jobs wait) is
/// replaced likewise, up to 512 threads. Computing creates no threads. Surplus threads end after
/// idling. No thread exists before the first job. If no thread can be created, jobs wait and a
/// watcher thread, started with the first job, retries. If the watcher cannot be created either,
/// posting waits for it, up to 2 s in total for the process; after that, the next post and every
/// wait in this library retry. Threads that idle at process exit are abandoned; nothing is torn
/// down.
class ThreadPool final {
 public:
  static ThreadPool& shared();

  /// Any thread. Jobs of one lane start in the order in which they were posted.
  ///
  /// @param inside What the thread is recorded as running during the job: the queue that posts it.
  void post(Job&& job, DispatchPriority priority = DispatchPriority::normal,
            const void* inside = nullptr);

  /// Like `post`, for the last statement of a job: unless a more urgent job waits, the calling
  /// thread runs it right after that job, without queueing it or waking a thread. If that job
  /// announces that it blocks after all, another thread runs it.
  void postNext(Job&& job, DispatchPriority priority = DispatchPriority::normal,
                const void* inside = nullptr);

  /// Whether jobs wait in any lane.
  [[nodiscard]] bool hasWaiting() const noexcept;

  /// Whether jobs of a higher lane wait: a job that runs many others ends its turn then.
  [[nodiscard]] bool hasMoreUrgentThan(DispatchPriority priority) const noexcept;

  /// The pool's default lane as an executor, which lives for the whole process.
  static Executor& executor();

  /// Threads alive now, idle ones included.
  [[nodiscard]] std::size_t threadCount() const;

  /// Makes the watcher retry soon, and until it succeeds, what failed for want of a thread; false
  /// when the watcher itself is missing and cannot be created. Any thread.
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

  struct Posted {
    Job job;
    const void* inside = nullptr;
  };

  // One thread of the pool.
  struct Worker {
    int threadID = 0;
    bool isBusy = false;  // has a job, and has not announced that it blocks
    Posted following;     // runs right after the job
    std::size_t laneOfFollowing = 0;
    Worker* previous = nullptr;
    Worker* next = nullptr;
  };
  static thread_local Worker* worker;  // of the calling thread, if it is one

  ThreadPool();
  void work();
  void watchForStalls();
  void ensureWatcher() OMBRIX_REQUIRES(lock_);
  void push(std::size_t lane, Posted&& posted) OMBRIX_REQUIRES(lock_);
  [[nodiscard]] Parking* ensureThread() OMBRIX_REQUIRES(lock_);
  bool spawn() OMBRIX_REQUIRES(lock_);
  bool park() OMBRIX_REQUIRES(lock_);
  bool takeJob(Posted& posted) OMBRIX_REQUIRES(lock_);
  [[nodiscard]] std::size_t active() const OMBRIX_REQUIRES(lock_) {
    return threads_ - idle_ - blocked_;
  }

  mutable FutexLock lock_;
  std::array<std::deque<Posted>, kLanes> lanes_ OMBRIX_GUARDED_BY(lock_);
  std::atomic<unsigned> lanesWaiting_{0};  // a bit for each; read without the lock
  // Jobs of higher lanes taken since its turn.
  std::array<unsigned, kLanes> passedOver_ OMBRIX_GUARDED_BY(lock_){};
  std::size_t waiting_ OMBRIX_GUARDED_BY(lock_) = 0;
  std::size_t threads_ OMBRIX_GUARDED_BY(lock_) = 0;
  std::size_t idle_ OMBRIX_GUARDED_BY(lock_) = 0;  // parked
  Worker* workers_ OMBRIX_GUARDED_BY(lock_) = nullptr;
  Parking* parked_ OMBRIX_GUARDED_BY(lock_) = nullptr;  // the last one to park first
  // A woken thread has not yet looked for a job.
  bool isWaking_ OMBRIX_GUARDED_BY(lock_) = false;
  std::size_t blocked_ OMBRIX_GUARDED_BY(lock_) = 0;  // threads that announced it
  bool watcherExists_ OMBRIX_GUARDED_BY(lock_) = false;
  bool watcherSleeps_ OMBRIX_GUARDED_BY(lock_) = false;
  AnyCondition saturated_;
  const std::size_t width_;
};

}  // namespace ombrix::platform

#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"

namespace ombrix::platform {

/// The lane of the pool a job waits in; a higher lane is served first.
enum class DispatchPriority : std::int16_t {
  high = 2,
  normal = 0,
  low = -2,
  background = INT16_MIN,
};

/// The process-wide threads behind every queue and task.
///
/// As many jobs run at once as there are processors (at least 4). Jobs that block do not starve
/// the others: a `BlockingScope` lends its place to another thread at once, and when no job has
/// been taken up for a few milliseconds while some wait, the pool grows (to 512 threads). Surplus
/// threads end after idling. No thread exists before the first job. Threads that idle at process
/// exit are abandoned; nothing is torn down.
///
/// The first few jobs that a job posts while hardly any other waits are left to the same thread,
/// which takes them up when the poster has ended: handing them over costs more than most jobs.
/// Further posts, a `BlockingScope` or the passing of a few milliseconds do hand them over.
class ThreadPool final {
 public:
  static ThreadPool& shared();

  /// Any thread. Jobs of one lane start in the order of their posting.
  void post(Job job, DispatchPriority priority = DispatchPriority::normal);

  /// The pool's default lane as an executor, which lives for the whole process.
  static Executor& executor();

  /// Threads alive now, idle ones included.
  [[nodiscard]] std::size_t threadCount() const;

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
  using Lock = std::unique_lock<FutexLock>;

  ThreadPool();
  void work();
  void watchForStalls();
  void ensureWatcher();
  void ensureThread(Lock& lock);
  bool spawn();
  bool park(Lock& lock);
  bool takeJob(Job& job);
  [[nodiscard]] std::size_t active() const { return threads_ - idle_ - blocked_; }

  mutable FutexLock lock_;  // guards what follows
  std::array<std::deque<Job>, kLanes> lanes_;
  std::size_t waiting_ = 0;
  std::size_t threads_ = 0;
  std::size_t idle_ = 0;       // parked
  Parking* parked_ = nullptr;  // the last one to park first
  bool isWaking_ = false;      // one was woken and has not yet looked for a job
  std::size_t blocked_ = 0;
  std::uint64_t taken_ = 0;
  bool watcherExists_ = false;
  bool watcherSleeps_ = false;
  std::condition_variable_any saturated_;
  const std::size_t width_;
};

}  // namespace ombrix::platform

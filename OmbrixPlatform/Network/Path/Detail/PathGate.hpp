#pragma once

#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix::platform::detail {

/// Holds jobs back until the network path is known, so that no thread has to wait. Any thread.
class PathGate {
 public:
  /// Runs a job: at once when the gate is open, else on the thread pool once it opens.
  void pass(Job job) {
    {
      const LockGuard lock(lock_);
      if (!isOpen_) {
        held_.push_back(std::move(job));
        return;
      }
    }
    job();
  }

  /// Opens it for good.
  void open() {
    std::vector<Job> held;
    {
      const LockGuard lock(lock_);
      isOpen_ = true;
      held.swap(held_);
    }
    for (Job& job : held) ThreadPool::shared().post(std::move(job));
  }

 private:
  FutexLock lock_;
  bool isOpen_ OMBRIX_GUARDED_BY(lock_) = false;
  std::vector<Job> held_ OMBRIX_GUARDED_BY(lock_);
};

}  // namespace ombrix::platform::detail

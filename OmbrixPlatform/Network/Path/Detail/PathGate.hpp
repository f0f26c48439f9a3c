#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::platform::detail {

/// Holds jobs back until the network path is known, so that nobody has to wait. Any thread.
class PathGate {
 public:
  /// Runs a job: at once when the gate is open, else on the thread pool once it opens.
  void pass(Job job) {
    {
      const std::lock_guard lock(lock_);
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
      const std::lock_guard lock(lock_);
      isOpen_ = true;
      held.swap(held_);
    }
    for (Job& job : held) ThreadPool::shared().post(std::move(job));
  }

 private:
  FutexLock lock_;  // guards what follows
  bool isOpen_ = false;
  std::vector<Job> held_;
};

}  // namespace ombrix::platform::detail

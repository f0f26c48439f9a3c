#pragma once

#include <deque>
#include <semaphore>
#include <utility>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::testing {

/// An executor whose jobs run when the test runs them, in the test's order. Any thread.
class HeldExecutor final : public platform::Executor {
 public:
  void post(platform::Job job) override {
    {
      const platform::LockGuard lock(mutex_);
      jobs_.push_back(std::move(job));
    }
    posted_.release();
  }

  /// Waits for the next job and returns it.
  [[nodiscard]] platform::Job take() {
    posted_.acquire();
    const platform::LockGuard lock(mutex_);
    auto job = std::move(jobs_.front());
    jobs_.pop_front();
    return job;
  }

 private:
  platform::Mutex mutex_;
  std::deque<platform::Job> jobs_ OMBRIX_GUARDED_BY(mutex_);
  std::counting_semaphore<> posted_{0};
};

}  // namespace ombrix::testing

#pragma once

#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::testing {

/// A clock that stands still until a test moves it. Any thread.
class ManualClock final : public platform::Clock {
 public:
  explicit ManualClock(platform::Date now = platform::dateSince1970(1'700'000'000)) : now_(now) {}

  platform::Date now() const override {
    const platform::LockGuard lock(mutex_);
    return now_;
  }
  std::chrono::steady_clock::time_point steadyNow() const override {
    const platform::LockGuard lock(mutex_);
    return steadyNow_;
  }

  /// Moves both clocks forward; timers that became due fire soon after, on the events thread.
  void advance(platform::TimeInterval span) {
    {
      const platform::LockGuard lock(mutex_);
      now_ += span;
      steadyNow_ += std::chrono::duration_cast<std::chrono::steady_clock::duration>(span);
    }
    platform::reconsiderTimers();
  }

  /// Sets only the wall clock, as a user does; it may go back.
  void setNow(platform::Date now) {
    const platform::LockGuard lock(mutex_);
    now_ = now;
  }

 private:
  mutable platform::Mutex mutex_;
  platform::Date now_ OMBRIX_GUARDED_BY(mutex_);
  std::chrono::steady_clock::time_point steadyNow_ OMBRIX_GUARDED_BY(mutex_){};
};

}  // namespace ombrix::testing

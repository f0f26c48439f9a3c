#pragma once

#include <atomic>
#include <cstddef>
#include <utility>
#include <vector>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"

namespace ombrix {

/// The observations of one settings object. They begin later, on a queue: the object must not be
/// destroyed meanwhile, and they must end with it.
struct OmbrixSettings::Registrations {
  /// Called before work for the object is posted; false once the object is being destroyed.
  bool begin() {
    const platform::LockGuard lock(mutex_);
    if (hasEnded_) return false;
    ++underWay_;
    return true;
  }

  /// Called when that work is done.
  void finish() {
    const platform::LockGuard lock(mutex_);
    --underWay_;
    changed_.notify_all();
  }

  void add(platform::ObservationToken token) {
    const platform::LockGuard lock(mutex_);
    tokens_.push_back(std::move(token));
  }

  /// Waits until all work that was begun is done.
  void wait() {
    const platform::LockGuard lock(mutex_);
    changed_.wait(mutex_, [&]() OMBRIX_REQUIRES(mutex_) { return underWay_ == 0; });
  }

  void end() {
    std::vector<platform::ObservationToken> ended;  // outside the lock: waits for running calls
    const platform::LockGuard lock(mutex_);
    hasEnded_ = true;
    changed_.wait(mutex_, [&]() OMBRIX_REQUIRES(mutex_) { return underWay_ == 0; });
    ended.swap(tokens_);
  }

  /// Whether the locale service tells the object of changes.
  std::atomic<bool> followsLocale{false};

 private:
  platform::Mutex mutex_;
  platform::Condition changed_;
  std::size_t underWay_ OMBRIX_GUARDED_BY(mutex_) = 0;
  bool hasEnded_ OMBRIX_GUARDED_BY(mutex_) = false;
  std::vector<platform::ObservationToken> tokens_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix

#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"

namespace ombrix {

/// What one settings object observes. Observing begins later, on a queue: the object must not go
/// while that is under way, and what is observed must end with it.
struct OmbrixSettings::Registrations {
  /// Before work for the object is posted; false once the object goes.
  bool begin() {
    const std::lock_guard lock(mutex_);
    if (hasEnded_) return false;
    ++underWay_;
    return true;
  }

  /// When that work is done.
  void finish() {
    const std::lock_guard lock(mutex_);
    --underWay_;
    changed_.notify_all();
  }

  void add(platform::ObservationToken token) {
    const std::lock_guard lock(mutex_);
    tokens_.push_back(std::move(token));
  }

  /// Waits until all that was begun is done.
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return underWay_ == 0; });
  }

  void end() {
    std::vector<platform::ObservationToken> ended;  // outside the lock: waits for running calls
    std::unique_lock lock(mutex_);
    hasEnded_ = true;
    changed_.wait(lock, [&] { return underWay_ == 0; });
    ended.swap(tokens_);
    lock.unlock();
  }

  /// Whether the locale service tells the object of changes.
  std::atomic<bool> followsLocale{false};

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t underWay_ = 0;
  bool hasEnded_ = false;
  std::vector<platform::ObservationToken> tokens_;
};

}  // namespace ombrix

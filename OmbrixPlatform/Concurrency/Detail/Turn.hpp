#pragma once

#include <chrono>
#include <utility>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::platform::detail {

/// One turn on a pool thread in which a queue runs several jobs, one after another. The pool counts
/// a turn as one job, so a long turn would cost other jobs their share of the threads.
class Turn {
 public:
  explicit Turn(DispatchPriority priority) noexcept : priority_(priority) {}

  /// Whether the turn should end after the job that has just run: a more urgent job waits for the
  /// pool, or any job waits and the turn was long.
  [[nodiscard]] bool isOver() const noexcept {
    constexpr std::chrono::microseconds kLong{500};
    const ThreadPool& pool = ThreadPool::shared();
    return pool.hasWaiting() && (pool.hasMoreUrgentThan(priority_) ||
                                 std::chrono::steady_clock::now() - begin_ >= kLong);
  }

 private:
  const DispatchPriority priority_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

/// Says, while a queue runs a job of its own, that the job of the pool in which it does so ends
/// right after it.
class WholeTurn {
 public:
  WholeTurn() noexcept : outer_(std::exchange(isCurrent_, true)) {}
  ~WholeTurn() { isCurrent_ = outer_; }
  WholeTurn(const WholeTurn&) = delete;
  WholeTurn& operator=(const WholeTurn&) = delete;

  static bool isCurrent() noexcept { return isCurrent_; }

 private:
  static inline constinit thread_local bool isCurrent_ = false;
  const bool outer_;
};

/// The lane of the pool's job that the calling thread runs; the normal one elsewhere.
[[nodiscard]] DispatchPriority currentPriority() noexcept;

}  // namespace ombrix::platform::detail

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix::detail {

/// Brings one store's changes to the disk, one at a time and never an earlier one after a later
/// one. Of the waiting changes only the last is made. Any thread.
///
/// At a normal end of the process (main returns, or `exit`) the changes handed in are still made,
/// even if the thread pool is busy or has no thread. The process waits for them for half a minute
/// at most; if the disk does not answer by then, they are given up, and the log says so. A killed
/// or aborted process waits for nothing. A process that was forked from one with a thread pool
/// makes changes at once, since such processes often end without running any exit handler; changes
/// that waited at the fork are left to the parent.
class BackgroundWriter final : public std::enable_shared_from_this<BackgroundWriter> {
 public:
  using Change = std::function<void()>;

  /// @param fileURL The file that the changes write, for the log.
  explicit BackgroundWriter(platform::URL fileURL) : fileURL_(std::move(fileURL)) {}

  /// The place of a new change in the order of all; later ones have higher places. Never blocks.
  [[nodiscard]] std::uint64_t nextPlace() noexcept { return ++places_; }

  /// Makes a change on the thread pool, unless a later one has been handed in already.
  void makeLater(std::uint64_t place, Change change);

  /// Makes a change before it returns, after the one in progress and instead of all earlier ones
  /// that wait; unless a later one was made already.
  void makeNow(std::uint64_t place, const Change& change);

  /// Returns when every change handed in before the call was made, or was replaced by a later one
  /// that was made. Makes them itself if the pool has not begun. Called from inside a change, it
  /// returns at once.
  void flush();

 private:
  struct Shared;
  using Waiting = std::optional<std::pair<std::uint64_t, Change>>;
  using Deadline = std::chrono::steady_clock::time_point;
  using Writers = std::vector<std::shared_ptr<BackgroundWriter>>;

  static Shared& shared();
  static void makeAllAtExit();
  static void makeAtExit(const Writers& writers);

  void makeWaiting();
  void make(std::uint64_t place, Change change) OMBRIX_REQUIRES(lock_);
  [[nodiscard]] bool settle() OMBRIX_REQUIRES(lock_);
  void schedule();
  void awaitUntil(Deadline deadline);
  void list() OMBRIX_REQUIRES(lock_);
  void enterChild() OMBRIX_NO_THREAD_SAFETY_ANALYSIS;  // on the one thread there is

  const platform::URL fileURL_;
  std::atomic<std::uint64_t> places_{0};
  // One for all writers; never held while a change is made.
  static constinit inline platform::ForkSafe<platform::FutexLock> lock_;
  platform::AnyCondition turnEnded_;
  Waiting waiting_ OMBRIX_GUARDED_BY(lock_);
  std::uint64_t newest_ OMBRIX_GUARDED_BY(lock_) = 0;  // of those handed in
  std::uint64_t made_ OMBRIX_GUARDED_BY(lock_) = 0;    // the last one made
  // The thread that is making a change, if any.
  std::thread::id maker_ OMBRIX_GUARDED_BY(lock_);
  bool isScheduled_ OMBRIX_GUARDED_BY(lock_) = false;
  const platform::ForkHandler onFork_{[this] { enterChild(); }};
};

}  // namespace ombrix::detail

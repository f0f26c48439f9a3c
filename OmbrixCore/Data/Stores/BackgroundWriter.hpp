#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace ombrix::detail {

/// Brings one store's changes to the disk, one at a time and never an earlier one after a later
/// one. Of changes that wait only the last is made. Any thread.
///
/// A process that ends normally (main returns, or `exit`) makes what still waits before it ends,
/// for half a minute at most where the disk does not answer. A killed or aborted one does not.
class BackgroundWriter final : public std::enable_shared_from_this<BackgroundWriter> {
 public:
  using Change = std::function<void()>;

  /// The place of a change among all, later ones higher. Never blocks.
  [[nodiscard]] std::uint64_t nextPlace() noexcept { return ++places_; }

  /// Has a change made on the thread pool, unless a later one has come already.
  void makeLater(std::uint64_t place, Change change);

  /// Makes a change before it returns, in place of all earlier ones that wait and after the one
  /// under way; unless a later one was made already.
  void makeNow(std::uint64_t place, const Change& change);

  /// Returns when every change that was handed in before the call was made, or replaced by a later
  /// one that was. Makes them itself where the pool has not begun. Called from inside a change, it
  /// returns at once.
  void flush();

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Waiting = std::optional<std::pair<std::uint64_t, Change>>;
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  void scheduleIfNeeded(Lock& lock);
  void makeWaiting();
  void make(std::uint64_t place, Change change, Lock& lock);
  bool awaitTurn(Lock& lock, const Deadline& deadline);
  void flushUntil(const Deadline& deadline);
  static void flushAtExit();

  std::atomic<std::uint64_t> places_{0};
  std::mutex mutex_;  // guards what follows; never held while a change is made
  std::condition_variable turnEnded_;
  Waiting waiting_;
  std::uint64_t newest_ = 0;  // of those handed in
  std::uint64_t made_ = 0;    // the last one made
  std::thread::id maker_;     // of the change under way; none when there is none
  bool isScheduled_ = false;
};

}  // namespace ombrix::detail

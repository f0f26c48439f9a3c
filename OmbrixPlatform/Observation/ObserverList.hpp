#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"

/// The part of `Signal` that does not depend on its arguments. Use `Signal` instead.
namespace ombrix::platform::detail {

class ObserverList;

/// One registered handler with the count of its running calls.
class Observer : public Observation {
 public:
  void cancel() noexcept final;

 protected:
  /// Destroys the handler with its captures. Called once, outside every lock.
  virtual void releaseHandler() noexcept = 0;

 private:
  friend class ObserverList;
  friend class ObserverCall;

  [[nodiscard]] bool enter() noexcept;
  void leave() noexcept;

  static constexpr std::uint32_t kCancelled = 1U << 31;
  static constexpr std::uint32_t kReleased = 1U << 30;
  static constexpr std::uint32_t kCountMask = kReleased - 1;

  std::weak_ptr<ObserverList> list_;
  std::atomic<std::uint32_t> state_{0};  // running calls, kCancelled, kReleased
};

/// The scope of one call of an observer's handler; false when the observer is cancelled already.
class ObserverCall {
 public:
  explicit ObserverCall(Observer& observer) noexcept;
  ~ObserverCall();
  ObserverCall(const ObserverCall&) = delete;
  ObserverCall& operator=(const ObserverCall&) = delete;

  explicit operator bool() const noexcept { return entered_; }

  /// How many calls of the observer are on this thread's stack.
  static std::uint32_t depthOnThisThread(const Observer& observer) noexcept;

 private:
  Observer& observer_;
  const ObserverCall* outer_ = nullptr;
  bool entered_;
};

/// Observers in the order of their registration. Any thread.
///
/// A round walks the entries that it found at its start, without a lock. Entries are changed in
/// place while no round walks them and copied otherwise, so adding and cancelling take amortised
/// constant time even with many thousands of observers.
class ObserverList : public std::enable_shared_from_this<ObserverList> {
 private:
  struct Entries {
    std::vector<std::shared_ptr<Observer>> observers;
    std::atomic<std::size_t> rounds{0};
  };

 public:
  /// The entries as they were when the round began; keeps them alive.
  class Round {
   public:
    explicit Round(ObserverList& list);
    ~Round();
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    [[nodiscard]] auto begin() const noexcept { return entries_->observers.begin(); }
    [[nodiscard]] auto end() const noexcept { return entries_->observers.end(); }

   private:
    std::shared_ptr<Entries> entries_;
  };

  ObserverList() : entries_(std::make_shared<Entries>()) {}

  void add(const std::shared_ptr<Observer>& observer);

  /// Counts a cancelled observer; entries are removed once half of them are dead.
  void noteCancelled();

  [[nodiscard]] bool empty() const noexcept { return live_.load(std::memory_order_acquire) == 0; }

 private:
  Entries& entriesToChange() OMBRIX_REQUIRES(mutex_);

  Mutex mutex_;
  std::shared_ptr<Entries> entries_ OMBRIX_GUARDED_BY(mutex_);
  std::atomic<std::size_t> live_{0};
};

}  // namespace ombrix::platform::detail

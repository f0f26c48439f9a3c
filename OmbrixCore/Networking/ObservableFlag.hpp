#pragma once

#include <atomic>
#include <functional>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Concurrency/InsideScope.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix {

/// A truth value that an object announces under a key, on changes only. Any thread.
///
/// Every change is announced once, one after the other: if a change is made while another thread
/// (or an outer call on this one) announces an earlier one, that thread announces it right after.
/// No lock is held meanwhile.
class ObservableFlag {
 public:
  /// @param key Outlives the flag.
  /// @param onRise Called after each change from false to true was announced.
  ObservableFlag(platform::KeyValueObserving<bool>& owner, std::string_view key,
                 std::function<void()> onRise = nullptr)
      : owner_(owner), key_(key), onRise_(std::move(onRise)) {}

  [[nodiscard]] std::string_view key() const noexcept { return key_; }

  /// The present value, perhaps before its observers know.
  [[nodiscard]] bool value() const {
    const platform::LockGuard lock(lock_);
    return latest_;
  }

  /// The value that observers know.
  [[nodiscard]] bool announced() const noexcept { return announced_; }

  void set(bool value) {
    update([value] { return value; });
  }

  /// Sets what a closure computes. Closures run one at a time, under the lock of the flag, so the
  /// last one to look at what the value depends on decides.
  template <class Compute>
  void update(Compute compute) {
    if (storeComputed(compute)) announceChanges();
  }

  /// The first half of `set`, for callers that store several values under their own lock. True: the
  /// caller has to call `announceChanges` once, without that lock.
  [[nodiscard]] bool store(bool value) {
    return storeComputed([value] { return value; });
  }

  void announceChanges() {
    do announceOneChange();
    while (isMorePending());
  }

 private:
  template <class Compute>
  bool storeComputed(Compute compute) {
    const platform::LockGuard lock(lock_);
    const bool value = compute();
    if (value == latest_) return false;
    latest_ = value;
    return pendingChanges_++ == 0;
  }

  void announceOneChange() {
    if (owner_.isObserved() || onRise_) platform::detail::PoolJob::goesOn();
    const bool value = !announced_;
    owner_.willChangeValueForKey(key_);
    announced_ = value;
    owner_.didChangeValueForKey(key_);
    if (value && onRise_) platform::callOut("a handler of the client", onRise_);
  }

  bool isMorePending() {
    const platform::LockGuard lock(lock_);
    return --pendingChanges_ > 0;
  }

  platform::KeyValueObserving<bool>& owner_;
  const std::string_view key_;
  const std::function<void()> onRise_;
  std::atomic<bool> announced_{false};  // changed only by the thread that announces
  mutable platform::FutexLock lock_;
  bool latest_ OMBRIX_GUARDED_BY(lock_) = false;
  unsigned pendingChanges_ OMBRIX_GUARDED_BY(lock_) = 0;
};

}  // namespace ombrix

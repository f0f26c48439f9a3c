#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "OmbrixCore/Concurrency/UnfairLock.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix {

/// Runs one block once in its lifetime. Any thread.
class DispatchOnce final {
 public:
  constexpr DispatchOnce() noexcept = default;
  DispatchOnce(const DispatchOnce&) = delete;
  DispatchOnce& operator=(const DispatchOnce&) = delete;

  /// Runs the block unless one has run already; returns when that block has finished. The block
  /// must not throw: an exception that leaves it stops the program with its text.
  // Kept: the flag is set after the block and the lock is held meanwhile, so a block that calls
  // `perform` on its own guard waits for ever; setting the flag first would let others pass before
  // the block has finished.
  template <class Block>
  void perform(Block&& block) {
    performUntilDone([&block] {
      std::forward<Block>(block)();
      return true;
    });
  }

  /// The same with a block that tells whether it is done: after false the next call runs its block.
  template <class Block>
  void performUntilDone(Block&& block) {
    if (isInitialized_.load(std::memory_order_acquire)) [[likely]]
      return;
    performLocked(std::forward<Block>(block));
  }

  /// In a process that was just forked, on its only thread: a block that another thread was running
  /// counts as not begun.
  void forgetRunning() noexcept { std::construct_at(&lock_); }

 private:
  template <class Block>
  [[gnu::noinline]] void performLocked(Block&& block) {
    lock_.sync([&] {
      if (isInitialized_.load(std::memory_order_relaxed)) return;
      if (platform::callOut("a block that runs once", std::forward<Block>(block))) {
        isInitialized_.store(true, std::memory_order_release);
      }
    });
  }

  UnfairLock lock_;
  std::atomic<bool> isInitialized_{false};
};

}  // namespace ombrix

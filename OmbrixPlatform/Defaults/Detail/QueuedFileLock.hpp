#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Files/LockWait.hpp"

namespace ombrix::platform::detail {

/// Has a lock on a file until it goes, also where a child was forked that has the open file, too.
class HeldFileLock {
 public:
  HeldFileLock() noexcept = default;
  explicit HeldFileLock(Descriptor file) noexcept : file_(std::move(file)) {}
  HeldFileLock(HeldFileLock&&) noexcept = default;
  HeldFileLock& operator=(HeldFileLock&&) = delete;
  ~HeldFileLock();

  explicit operator bool() const noexcept { return static_cast<bool>(file_); }

 private:
  Descriptor file_;
};

/// An exclusive lock among processes on a side file. Those who wait stand in the kernel's queue,
/// which wakes them when it is their turn; who gives up leaves his place to the next caller.
///
/// One thread at a time.
class QueuedFileLock {
 public:
  /// Makes the file where it is missing, and takes the lock; without one, `errno` says why
  /// (`ETIMEDOUT`).
  HeldFileLock acquire(const std::string& path, std::chrono::steady_clock::duration timeout);

 private:
  Descriptor waitFor(const std::string& path, Descriptor file, LockDeadline deadline);

  std::shared_ptr<LockWait> wait_;  // of a caller who gave up
  std::string path_;                // what it waits for
};

}  // namespace ombrix::platform::detail

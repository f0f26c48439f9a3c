#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Files/LockWait.hpp"

namespace ombrix::platform::detail {

/// Holds a lock on a file as long as it lives, and releases it even if a forked child has the file
/// open, too.
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

/// An exclusive lock among processes on a side file. Waiting callers stand in the kernel's queue,
/// which wakes them in turn; a caller that gives up leaves its place to the next one.
///
/// One thread at a time.
class QueuedFileLock {
 public:
  /// Takes the lock, and makes the file if it is missing; without a lock, `errno` says why
  /// (`ETIMEDOUT`).
  HeldFileLock acquire(const std::string& path, std::chrono::steady_clock::duration timeout);

 private:
  Descriptor waitFor(const std::string& path, Descriptor file, LockDeadline deadline);

  std::shared_ptr<LockWait> wait_;  // of a caller who gave up
  std::string path_;                // what it waits for
};

}  // namespace ombrix::platform::detail

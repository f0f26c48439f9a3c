#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// An exclusive lock among processes on a side file. Those who wait stand in the kernel's queue,
/// which wakes them when it is their turn.
///
/// The kernel's wait has no end of its own, and a process that was stopped while it holds the lock
/// must not stop the others for ever. So a thread waits for the caller, who gives up in time; it
/// stays in the queue, and the next caller takes its place over.
///
/// One thread at a time.
class QueuedFileLock {
 public:
  QueuedFileLock() = default;
  ~QueuedFileLock();
  QueuedFileLock(const QueuedFileLock&) = delete;
  QueuedFileLock& operator=(const QueuedFileLock&) = delete;

  /// Makes the file where it is missing, and takes the lock, which is held until the descriptor is
  /// closed; without one, `errno` says why (`ETIMEDOUT`).
  Descriptor acquire(const std::string& path, std::chrono::steady_clock::duration timeout);

 private:
  struct Wait;

  Descriptor waitFor(const std::string& path, Descriptor file,
                     std::chrono::steady_clock::time_point deadline);

  std::shared_ptr<Wait> wait_;  // of a caller who gave up
};

}  // namespace ombrix::platform::detail

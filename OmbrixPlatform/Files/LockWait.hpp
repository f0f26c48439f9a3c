#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::platform::detail {

class Descriptor;

enum class LockStep : std::uint8_t { ask, wait, letGo };

/// Locks an open file if it is free, or waits until it is, or releases the lock; 0 or errno.
using LockCall = std::function<int(int file, LockStep step)>;

using LockDeadline = std::chrono::steady_clock::time_point;

/// How long to wait for a lock that another process holds: long enough for any working holder, and
/// short compared with one that was stopped.
constexpr std::chrono::seconds kLockTimeout{10};

/// Takes a lock of an open file, waiting for other holders until the deadline; 0 or errno
/// (`ETIMEDOUT`). Any thread.
int lockBefore(int file, const LockCall& call, LockDeadline deadline);

/// The same by polling: it takes no place in the queue, and so leaves no waiting thread there.
int lockByAsking(int file, const LockCall& call, LockDeadline deadline);

/// A place in the kernel's queue for a lock that another process holds.
///
/// The kernel's wait has no time limit, and a process that was stopped while it holds the lock must
/// not stop the others for ever. So a thread waits on the caller's behalf, and the caller can give
/// up. The thread stays in the queue and releases the lock when its turn comes, unless the caller
/// wants its place back by then. One caller at a time.
class LockWait {
 public:
  /// Null when no thread or descriptor is left, or when many waits were given up already.
  static std::shared_ptr<LockWait> begin(int file, LockCall call);

  LockWait(Descriptor file, LockCall call);
  ~LockWait();
  LockWait(const LockWait&) = delete;
  LockWait& operator=(const LockWait&) = delete;

  /// Waits for the lock; gives the open file that holds it, or none, with `errno`. After
  /// `ETIMEDOUT` the wait is given up.
  Descriptor finish(LockDeadline deadline);

  /// Takes up a wait again that was given up; false when its turn has come and gone.
  bool resume();

 private:
  void run();

  const unsigned forks_;  // a process that was forked since does not have the thread
  Mutex mutex_;
  Condition done_;
  bool isWanted_ OMBRIX_GUARDED_BY(mutex_) = true;
  bool isDone_ OMBRIX_GUARDED_BY(mutex_) = false;
  int error_ OMBRIX_GUARDED_BY(mutex_) = 0;
  // Shares the caller's open file, and so its locks; belongs to the thread until the thread is
  // done.
  const std::unique_ptr<Descriptor> file_;
  const LockCall call_;
};

}  // namespace ombrix::platform::detail

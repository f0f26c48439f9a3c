#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::platform::detail {

class Descriptor;

enum class LockStep : std::uint8_t { ask, wait, letGo };

/// Locks an open file if nobody has it, or waits until it can, or lets the lock go; 0 or errno.
using LockCall = std::function<int(int file, LockStep step)>;

using LockDeadline = std::chrono::steady_clock::time_point;

/// How long a lock is waited for that another process has: long for any honest holder, short beside
/// one that was stopped.
constexpr std::chrono::seconds kLockTimeout{10};

/// Takes a lock of an open file, waiting until the deadline for others who have it; 0 or errno
/// (`ETIMEDOUT`). Any thread.
int lockBefore(int file, const LockCall& call, LockDeadline deadline);

/// The same by asking from time to time: it stands in no queue, and so leaves nobody there.
int lockByAsking(int file, const LockCall& call, LockDeadline deadline);

/// A place in the kernel's queue for a lock that another has.
///
/// The kernel's wait has no end of its own, and a process that was stopped while it holds the lock
/// must not stop the others for ever. So a thread waits for the caller, who gives up in time; the
/// thread stays in the queue and lets the lock go when it comes, or the caller takes its place up
/// again. One caller at a time.
class LockWait {
 public:
  /// Null where no thread or descriptor is left, or many were given up already.
  static std::shared_ptr<LockWait> begin(int file, LockCall call);

  LockWait(Descriptor file, LockCall call);
  ~LockWait();
  LockWait(const LockWait&) = delete;
  LockWait& operator=(const LockWait&) = delete;

  /// Waits for the lock: the open file that holds it, or none, with `errno`. The wait is given up
  /// after `ETIMEDOUT`.
  Descriptor finish(LockDeadline deadline);

  /// Has a wait that was given up be wanted again; false when its turn has come and gone.
  bool resume();

 private:
  void run();

  const unsigned forks_;  // the thread is in no process that was forked since
  Mutex mutex_;
  Condition done_;
  bool isWanted_ OMBRIX_GUARDED_BY(mutex_) = true;
  bool isDone_ OMBRIX_GUARDED_BY(mutex_) = false;
  int error_ OMBRIX_GUARDED_BY(mutex_) = 0;
  // Shares the caller's open file, and so its locks; the thread's until it is done.
  const std::unique_ptr<Descriptor> file_;
  const LockCall call_;
};

}  // namespace ombrix::platform::detail

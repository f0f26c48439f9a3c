#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <thread>

#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::platform::detail {

/// The network threads of all sessions: a thread that has ended is joined when the next one starts,
/// and a new one waits while many are about to end. Any thread.
class NetworkThreads {
 public:
  using Number = std::uint64_t;

  static NetworkThreads& shared();

  /// Runs a body on a thread of its own. Throws `std::system_error` when none can be started.
  /// @return The number for `join`: the system reuses threads' own identities.
  Number start(std::move_only_function<void()> body);

  /// Waits until a thread that is about to end is gone.
  void join(Number number);

  /// Called by a started thread whose body is about to return.
  void oneEnds();

 private:
  /// At the end of the process: joins the threads that have ended or end within a second.
  void joinEnding();
  struct Member {
    Number number;
    std::thread thread;
  };

  void run(std::list<Member>::iterator self, std::move_only_function<void()>& body);

  Mutex mutex_;
  Condition changed_;
  std::list<Member> running_ OMBRIX_GUARDED_BY(mutex_);
  std::list<Member> ended_ OMBRIX_GUARDED_BY(mutex_);
  Number last_ OMBRIX_GUARDED_BY(mutex_) = 0;
  std::size_t ending_ OMBRIX_GUARDED_BY(mutex_) = 0;
};

/// Whether this process was forked from one that had sessions. It has none of their threads, so a
/// request that it starts would never end.
[[nodiscard]] bool isForkedChild() noexcept;

}  // namespace ombrix::platform::detail

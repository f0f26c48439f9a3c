#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <thread>

#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::platform::detail {

/// The network threads of all sessions: those that have ended are joined when the next one starts,
/// and while many are just ending a new one waits for them. Any thread.
class NetworkThreads {
 public:
  using Number = std::uint64_t;

  static NetworkThreads& shared();

  /// Runs a body on a thread of its own. Throws `std::system_error` when none can be started.
  /// @return What `join` wants: threads' own identities are used again.
  Number start(std::move_only_function<void()> body);

  /// Waits until such a thread, which is about to end, is gone.
  void join(Number number);

  /// The body of one that was started is about to return.
  void oneEnds();

 private:
  /// At the end of the process: joins the threads that have ended, or do so within a second.
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

/// Whether this process was forked off one that had sessions: it has none of their threads, so
/// that nothing it begins could ever end.
[[nodiscard]] bool isForkedChild() noexcept;

}  // namespace ombrix::platform::detail

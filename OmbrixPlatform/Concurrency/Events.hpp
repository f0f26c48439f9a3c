#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "OmbrixPlatform/Concurrency/Executor.hpp"

namespace ombrix::platform {

/// Keeps a timer or a descriptor watch alive; move-only, its destruction ends it.
///
/// After destruction (or `cancel`) no later call of the handler starts on any thread. Destruction
/// waits for a call in progress on the events thread, so a handler may refer to its owner; inside
/// its own handler it neither waits nor deadlocks. Do not destroy a token while holding a lock that
/// the handler takes. Any thread.
class EventToken {
 public:
  class State;

  EventToken() noexcept = default;
  explicit EventToken(std::shared_ptr<State> state) noexcept : state_(std::move(state)) {}
  EventToken(EventToken&&) noexcept = default;
  EventToken& operator=(EventToken&& other) noexcept;
  ~EventToken() { cancel(); }

  /// Ends it now; does nothing when it has ended or the token is empty.
  void cancel() noexcept;

  /// False for an empty or cancelled token; true for a timer that has fired.
  explicit operator bool() const noexcept { return state_ != nullptr; }

 private:
  std::shared_ptr<State> state_;
};

using EventHandler = std::move_only_function<void()>;

/// Calls the handler once on the events thread when the clock service's steady clock reaches the
/// deadline. A deadline in the past is due at once, but the handler never runs inside this call.
///
/// Handlers must be brief: they hold up every other timer. Post longer work to a queue.
[[nodiscard]] EventToken after(std::chrono::steady_clock::time_point deadline,
                               EventHandler handler);

/// The same after a delay in seconds from now, by the clock service.
[[nodiscard]] EventToken after(std::chrono::duration<double> delay, EventHandler handler);

/// Runs the job once on the events thread at the deadline; it cannot be cancelled.
void afterUncancellably(std::chrono::steady_clock::time_point deadline, Job job);

/// Calls the handler on the events thread whenever the descriptor can be read without blocking
/// (also at its end), until the token is destroyed; the handler reads the available data.
///
/// The caller keeps ownership of the descriptor and may close it at any time after the call. Throws
/// `Error` for a descriptor that cannot be watched, such as a regular file.
[[nodiscard]] EventToken whenReadable(int descriptor, EventHandler handler);

/// The time point a delay in seconds from now by the clock service's steady clock; the farthest
/// time point for a delay that is too long for the clock or not a number.
[[nodiscard]] std::chrono::steady_clock::time_point deadlineAfter(
    std::chrono::duration<double> delay);

/// Makes all timers read their clocks again: adjustable clocks call it after they were set.
void reconsiderTimers();

}  // namespace ombrix::platform

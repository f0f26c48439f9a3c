#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "OmbrixPlatform/Concurrency/Executor.hpp"

namespace ombrix::platform {

/// Keeps a timer or a descriptor watch alive; move-only, its destruction ends it.
///
/// After destruction (or `cancel`) no later call of the handler starts on any thread. A call under
/// way on the events thread is waited for, so a handler may refer to its owner; destroying the
/// token inside its own handler does not wait and does not deadlock. Hold no lock that the handler
/// takes while destroying a token. Any thread.
class EventToken {
 public:
  class State;

  EventToken() noexcept = default;
  explicit EventToken(std::shared_ptr<State> state) noexcept : state_(std::move(state)) {}
  EventToken(EventToken&&) noexcept = default;
  EventToken& operator=(EventToken&& other) noexcept;
  ~EventToken() { cancel(); }

  /// Ends it now; nothing when it is over or empty.
  void cancel() noexcept;

  /// False for an empty or cancelled token; a timer that has fired still counts as held.
  explicit operator bool() const noexcept { return state_ != nullptr; }

 private:
  std::shared_ptr<State> state_;
};

using EventHandler = std::move_only_function<void()>;

/// Calls the handler once on the events thread when the clock service's steady clock has reached
/// the deadline; a deadline that has passed is due at once, though never inside this call.
///
/// Handlers must be brief: they hold up every other timer. Post longer work to a queue.
[[nodiscard]] EventToken after(std::chrono::steady_clock::time_point deadline,
                               EventHandler handler);

/// The same with a delay in seconds from now, by the clock service.
[[nodiscard]] EventToken after(std::chrono::duration<double> delay, EventHandler handler);

/// Runs the job once on the events thread at the deadline; it cannot be called off.
void afterUncancellably(std::chrono::steady_clock::time_point deadline, Job job);

/// Calls the handler on the events thread whenever the descriptor can be read without blocking
/// (also at its end), until the token is destroyed; the handler reads what there is.
///
/// The descriptor stays the caller's and may be closed at any time after the call. Throws `Error`
/// for a descriptor that cannot be watched, such as a regular file.
[[nodiscard]] EventToken whenReadable(int descriptor, EventHandler handler);

/// The point a delay in seconds from now by the clock service's steady clock; delays too long for
/// it, and what is not a number, become the farthest point there is.
[[nodiscard]] std::chrono::steady_clock::time_point deadlineAfter(
    std::chrono::duration<double> delay);

/// Makes all timers look at their clocks again: clocks that can be set call it when they were.
void reconsiderTimers();

}  // namespace ombrix::platform

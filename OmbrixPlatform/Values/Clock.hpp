#pragma once

#include <chrono>
#include <memory>

#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// The two clocks of the process, behind an interface so that tests can set them. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;

  /// Wall-clock time; may jump back when the user or the network sets it.
  [[nodiscard]] virtual Date now() const = 0;

  /// Time that never goes back, for deadlines and intervals.
  [[nodiscard]] virtual std::chrono::steady_clock::time_point steadyNow() const = 0;
};

/// The system's clocks.
std::shared_ptr<Clock> makeSystemClock();

}  // namespace ombrix::platform

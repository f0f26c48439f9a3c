#pragma once

#include <cstddef>

namespace ombrix::platform {

/// While one exists, messages of all threads are held, and passed to the loggers in order when the
/// last one ends: for code that holds a lock, so that its waiters do not also wait for a log.
///
/// At most `kMostMessages` are held; further ones are logged at once. Any thread.
class DDLogHold {
 public:
  static constexpr std::size_t kMostMessages = 1000;

  DDLogHold() noexcept;
  ~DDLogHold();
  DDLogHold(const DDLogHold&) = delete;
  DDLogHold& operator=(const DDLogHold&) = delete;
};

}  // namespace ombrix::platform

#pragma once

#include <cstddef>

namespace ombrix::platform {

/// While one lives, messages of all threads are kept, and handed to the loggers in their order when
/// the last one ends: for code that holds what others wait for, who are not to wait for a log, too.
///
/// At most `kMostMessages` are kept; further ones go out at once. Any thread.
class DDLogHold {
 public:
  static constexpr std::size_t kMostMessages = 1000;

  DDLogHold() noexcept;
  ~DDLogHold();
  DDLogHold(const DDLogHold&) = delete;
  DDLogHold& operator=(const DDLogHold&) = delete;
};

}  // namespace ombrix::platform

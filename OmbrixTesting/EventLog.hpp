#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::testing {

/// Collects reports of callbacks on any thread, as lines of text, and waits for a line.
class EventLog {
 public:
  void add(std::string line) {
    const platform::LockGuard lock(mutex_);
    lines_.push_back(std::move(line));
    added_.notify_all();
  }

  /// All lines since the last call, in order.
  std::vector<std::string> take() {
    const platform::LockGuard lock(mutex_);
    return std::exchange(lines_, {});
  }

  /// The same, once the line is among them; if it does not arrive in time, the last line is "(no
  /// <line>)".
  std::vector<std::string> takeOnce(const std::string& line) {
    const platform::LockGuard lock(mutex_);
    const auto isThere = [&]() OMBRIX_REQUIRES(mutex_) {
      return std::ranges::find(lines_, line) != lines_.end();
    };
    if (!added_.wait_for(mutex_, std::chrono::seconds(30), isThere)) {
      lines_.push_back("(no " + line + ")");
    }
    return std::exchange(lines_, {});
  }

 private:
  platform::Mutex mutex_;
  platform::Condition added_;
  std::vector<std::string> lines_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::testing

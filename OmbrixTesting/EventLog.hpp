#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace ombrix::testing {

/// Collects reports of callbacks on any thread, as lines of text, and waits for a line.
class EventLog {
 public:
  void add(std::string line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    added_.notify_all();
  }

  /// All lines since the last call, in order.
  std::vector<std::string> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

  /// The same, once the line is among them; if it does not arrive in time, the last line is "(no
  /// <line>)".
  std::vector<std::string> takeOnce(const std::string& line) {
    std::unique_lock lock(mutex_);
    const auto isThere = [&] { return std::ranges::find(lines_, line) != lines_.end(); };
    if (!added_.wait_for(lock, std::chrono::seconds(30), isThere)) {
      lines_.push_back("(no " + line + ")");
    }
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  std::condition_variable added_;
  std::vector<std::string> lines_;
};

}  // namespace ombrix::testing

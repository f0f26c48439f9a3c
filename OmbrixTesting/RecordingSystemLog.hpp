#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "OmbrixPlatform/Logging/SystemLog.hpp"

namespace ombrix::testing {

/// Stands for the system's log and keeps the texts of the entries. Any thread.
///
///     auto systemLog = std::make_shared<RecordingSystemLog>();
///     ScopedService scoped(services().systemLog, systemLog);
class RecordingSystemLog final : public platform::SystemLog {
 public:
  void write(const platform::SystemLogEntry& entry) override {
    const std::lock_guard lock(mutex_);
    texts_.emplace_back(entry.text);
  }

  [[nodiscard]] std::vector<std::string> texts() const {
    const std::lock_guard lock(mutex_);
    return texts_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

}  // namespace ombrix::testing

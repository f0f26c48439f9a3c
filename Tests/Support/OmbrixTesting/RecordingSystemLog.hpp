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
    origins_.push_back(std::string(entry.subsystem) + ":" + std::string(entry.category));
  }

  [[nodiscard]] std::vector<std::string> texts() const {
    const std::lock_guard lock(mutex_);
    return texts_;
  }

  /// The "subsystem:category" of each entry.
  [[nodiscard]] std::vector<std::string> origins() const {
    const std::lock_guard lock(mutex_);
    return origins_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
  std::vector<std::string> origins_;
};

}  // namespace ombrix::testing

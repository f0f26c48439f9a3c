#pragma once

#include <string>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Logging/SystemLog.hpp"

namespace ombrix::testing {

/// Replaces the system's log and keeps the texts of the entries. Any thread.
///
///     auto systemLog = std::make_shared<RecordingSystemLog>();
///     ScopedService scoped(services().systemLog, systemLog);
class RecordingSystemLog final : public platform::SystemLog {
 public:
  void write(const platform::SystemLogEntry& entry) override {
    const platform::LockGuard lock(mutex_);
    texts_.emplace_back(entry.text);
  }

  [[nodiscard]] std::vector<std::string> texts() const {
    const platform::LockGuard lock(mutex_);
    return texts_;
  }

 private:
  mutable platform::Mutex mutex_;
  std::vector<std::string> texts_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::testing

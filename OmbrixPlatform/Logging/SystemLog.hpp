#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "OmbrixPlatform/Logging/DDLogMessage.hpp"

namespace ombrix::platform {

/// One entry for the system's log; the texts are borrowed for the duration of the call.
struct SystemLogEntry {
  std::string_view text;
  DDLogFlag flag = DDLogFlag::info;
  std::string_view subsystem;
  std::string_view category;
  std::string_view file;
  std::string_view function;
  std::uint32_t line = 0;
};

/// The log that the system keeps for all programs.
class SystemLog {
 public:
  virtual ~SystemLog() = default;

  /// Writes an entry; an entry that the system does not accept is lost. Any thread.
  virtual void write(const SystemLogEntry& entry) = 0;
};

/// Writes to the journal if one is running (fields SUBSYSTEM, CATEGORY, PRIORITY, CODE_FILE,
/// CODE_FUNC, CODE_LINE), otherwise, and in a build without OMBRIX_WITH_JOURNAL, to syslog.
std::shared_ptr<SystemLog> makeSystemLog();

}  // namespace ombrix::platform

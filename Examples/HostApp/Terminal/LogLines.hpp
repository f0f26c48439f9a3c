#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/JSON.hpp"

namespace ombrix::hostapp {

/// The level of a log line, the most important first. Debug and verbose lines look alike.
enum class LogLevel { error, warning, info, debug };

/// One message of the log; its text may go over several lines.
struct LogEntry {
  std::string text;                           ///< As in the file, without the last line end.
  std::optional<LogLevel> level;              ///< Empty for lines that no logger has written.
  std::string time, message, file, function;  ///< Empty if the level is.
  int line = 0;
};

/// The entries of whole lines. A line that does not begin like an entry continues the one before.
std::vector<LogEntry> logEntries(std::string_view lines);

/// An entry as an object: time in seconds since 1970, level, message, file, function, line.
platform::JSON jsonOf(const LogEntry& entry);

}  // namespace ombrix::hostapp

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OmbrixPlatform/Logging/DDLogMessage.hpp"

namespace ombrix::testing {

/// Records all log messages during its scope, at every level.
///
/// Meanwhile the library's log calls do not set up the logging service, so no log files appear
/// unless the test itself uses `LoggingService::shared()`.
///
/// Errors that the test does not take with `takeErrors` end the test program with a message when
/// the scope ends: an unexpected error is a failed test. Any thread may log.
class RecordingLog {
 public:
  struct Line {
    platform::DDLogFlag flag;
    std::string message, file, function;
    std::uint32_t line;
  };

  RecordingLog();
  ~RecordingLog();
  RecordingLog(const RecordingLog&) = delete;
  RecordingLog& operator=(const RecordingLog&) = delete;

  /// All lines so far, in order.
  [[nodiscard]] std::vector<Line> lines() const;

  /// The texts of the errors since the last call; these count as expected.
  std::vector<std::string> takeErrors();

 private:
  class Logger;
  std::shared_ptr<Logger> logger_;
  platform::DDLogLevel previousLevel_;
  bool wasLoggingSetUp_;
};

}  // namespace ombrix::testing

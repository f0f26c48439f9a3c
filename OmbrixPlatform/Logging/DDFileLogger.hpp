#pragma once

#include <cstdint>
#include <memory>

#include "OmbrixPlatform/Logging/DDLogFileManager.hpp"
#include "OmbrixPlatform/Logging/DDLogger.hpp"

namespace ombrix::platform {

/// Writes lines to a log file and starts a new one when the file is old or large.
///
/// The first message reopens the newest file if that is still young and small, otherwise creates
/// one. Lines are buffered and appended whole, so that processes sharing a file never mix theirs:
/// at once for an error, otherwise within 10 ms, and at the latest on process exit, `fatalError` or
/// `flush`. A file or folder that was removed is created again.
///
/// Whatever the formatters return, the file is valid UTF-8 with one line per message: invalid bytes
/// become U+FFFD, line breaks and other control characters are written as "\n" or "\x1B", and a
/// line is at most 64 KiB, with a mark where a longer one was cut. A line torn by a full disk or a
/// killed process stays on a line of its own; this logger writes its own torn lines again.
///
/// While no file can be opened or written, up to 1 MiB of lines is held for later attempts (one per
/// second); lines beyond that are dropped. Only the first such failure is reported, on standard
/// error.
///
/// All operations may be called from any thread.
class DDFileLogger final : public DDLogger {
 public:
  static constexpr TimeInterval kDefaultRollingFrequency = std::chrono::hours{24};
  static constexpr std::uint64_t kDefaultMaximumFileSizeBytes = 10 * 1024 * 1024;

  /// \param logFileManager names the files; if null, the program's own in its caches folder.
  explicit DDFileLogger(
      std::shared_ptr<DDLogFileManager> logFileManager = std::make_shared<DDLogFileManager>());
  ~DDFileLogger() override;

  [[nodiscard]] const std::shared_ptr<DDLogFileManager>& logFileManager() const;

  /// The age in seconds at which a new file is started; 0 or less: never.
  [[nodiscard]] TimeInterval rollingFrequency() const;
  void setRollingFrequency(TimeInterval frequency);

  /// The size in bytes at which a new file is started, checked after each write; 0:
  /// never.
  [[nodiscard]] std::uint64_t maximumFileSize() const;
  void setMaximumFileSize(std::uint64_t bytes);

  /// Ends the current file; the next message starts a new one.
  void rollLogFile();

  /// Runs the formatter under this logger's lock.
  void log(const DDLogMessage& message) override;
  void flush() override;
  void flushBeforeAbort() noexcept override;

 private:
  class Writer;
  const std::unique_ptr<Writer> writer_;
};

}  // namespace ombrix::platform

#pragma once

#include <cstdint>
#include <memory>

#include "OmbrixPlatform/Logging/DDLogFileManager.hpp"
#include "OmbrixPlatform/Logging/DDLogger.hpp"

namespace ombrix::platform {

/// Writes lines to a log file and starts a new one when the file is old or large.
///
/// The first message opens the newest file again when it is still young and small, else makes
/// one. Lines are gathered and appended whole, so that processes which share a file never mix
/// theirs: at once for an error, else within 10 ms, and no later than the end of the process,
/// `fatalError` or `flush`. A file or folder that was removed is made again.
///
/// Whatever the formatters give, the file is valid UTF-8 with one line a message: bytes that are no
/// UTF-8 become U+FFFD, line breaks and other control characters are written as "\n" or "\x1B", and
/// a line is at most 64 KiB, what is left out of a longer one being marked. A line that a full disk
/// or a killed process tore stays on a line of its own; this logger's is written again whole.
///
/// While no file can be opened or written to, up to 1 MiB of lines is held for a later attempt
/// (one a second); lines beyond that are dropped. The first such failure says so on standard
/// error; nothing else does.
///
/// All operations may be called from any thread.
class DDFileLogger final : public DDLogger {
 public:
  static constexpr TimeInterval kDefaultRollingFrequency = std::chrono::hours{24};
  static constexpr std::uint64_t kDefaultMaximumFileSizeBytes = 10 * 1024 * 1024;

  /// \param logFileManager names the files; without one, the program's own in its caches folder.
  explicit DDFileLogger(
      std::shared_ptr<DDLogFileManager> logFileManager = std::make_shared<DDLogFileManager>());
  ~DDFileLogger() override;

  [[nodiscard]] const std::shared_ptr<DDLogFileManager>& logFileManager() const;

  /// The age in seconds at which a file is followed by a new one; 0 or less: never.
  [[nodiscard]] TimeInterval rollingFrequency() const;
  void setRollingFrequency(TimeInterval frequency);

  /// The size in bytes from which on a file is followed by a new one, checked after each write;
  /// 0: never.
  [[nodiscard]] std::uint64_t maximumFileSize() const;
  void setMaximumFileSize(std::uint64_t bytes);

  /// Ends the current file; the next message starts a new one.
  void rollLogFile();

  /// The formatter runs under this logger's lock.
  void log(const DDLogMessage& message) override;
  void flush() override;
  void flushBeforeAbort() noexcept override;

 private:
  class Writer;
  const std::unique_ptr<Writer> writer_;
};

}  // namespace ombrix::platform

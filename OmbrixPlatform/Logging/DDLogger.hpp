#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Logging/DDLogMessage.hpp"

namespace ombrix::platform {

/// Turns a message into a line of text, without the line break.
///
/// Called from any thread, and by some loggers under their own lock: a formatter must not log.
class DDLogFormatter {
 public:
  virtual ~DDLogFormatter() = default;

  /// Appends the line to `line`.
  virtual void format(const DDLogMessage& message, std::string& line) const = 0;
};

/// A destination of log messages.
class DDLogger {
 public:
  DDLogger() = default;
  DDLogger(const DDLogger&) = delete;
  DDLogger& operator=(const DDLogger&) = delete;
  virtual ~DDLogger() = default;

  /// Takes one message; called on the logging thread, by several threads at once.
  virtual void log(const DDLogMessage& message) = 0;

  /// Writes everything logged so far to the file or the service. Any thread.
  virtual void flush() {}

  /// The same for a program that is about to stop: called on the failing thread, which may hold
  /// this logger's own lock, so it gives up where `flush` would wait.
  virtual void flushBeforeAbort() noexcept {}

  /// Sets the formatter of the following lines; null restores the bare message text. Any thread.
  void setLogFormatter(std::shared_ptr<const DDLogFormatter> formatter);

  /// The formatter in use, or null.
  [[nodiscard]] std::shared_ptr<const DDLogFormatter> logFormatter() const;

 protected:
  /// Appends the line of a message: the formatter's, or the bare text without a formatter.
  void appendLine(const DDLogMessage& message, std::string& line) const;

 private:
  mutable Mutex formattersMutex_;
  // Every formatter set so far, the current one last. Earlier ones are kept, so that a message may
  // read `formatter_` without a lock.
  std::vector<std::shared_ptr<const DDLogFormatter>> formatters_
      OMBRIX_GUARDED_BY(formattersMutex_);
  std::atomic<const DDLogFormatter*> formatter_{nullptr};
};

}  // namespace ombrix::platform

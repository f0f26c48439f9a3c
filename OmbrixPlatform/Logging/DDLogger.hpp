#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "OmbrixPlatform/Logging/DDLogMessage.hpp"

namespace ombrix::platform {

/// Turns a message into a line of text, without the line break. Called from any thread.
class DDLogFormatter {
 public:
  virtual ~DDLogFormatter() = default;

  /// Appends the line to `line`.
  virtual void format(const DDLogMessage& message, std::string& line) const = 0;
};

/// A destination of log messages.
class DDLogger {
 public:
  virtual ~DDLogger() = default;

  /// Writes one message; called on the thread that logs, from several threads at once.
  virtual void log(const DDLogMessage& message) = 0;

  /// Makes everything logged so far durable in the file or with the service.
  virtual void flush() {}

  void setLogFormatter(std::shared_ptr<const DDLogFormatter> formatter) {
    const std::lock_guard lock(formatterMutex_);
    formatter_ = std::move(formatter);
  }
  [[nodiscard]] std::shared_ptr<const DDLogFormatter> logFormatter() const {
    const std::lock_guard lock(formatterMutex_);
    return formatter_;
  }

 private:
  mutable std::mutex formatterMutex_;
  std::shared_ptr<const DDLogFormatter> formatter_;
};

}  // namespace ombrix::platform

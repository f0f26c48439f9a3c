#include "OmbrixPlatform/Logging/DDLogger.hpp"

#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform {

void DDLogger::setLogFormatter(std::shared_ptr<const DDLogFormatter> formatter) {
  const LockGuard lock(formattersMutex_);
  formatters_.push_back(std::move(formatter));
  formatter_.store(formatters_.back().get(), std::memory_order_release);
}

std::shared_ptr<const DDLogFormatter> DDLogger::logFormatter() const {
  const LockGuard lock(formattersMutex_);
  return formatters_.empty() ? nullptr : formatters_.back();
}

void DDLogger::appendLine(const DDLogMessage& message, std::string& line) const {
  if (const auto* formatter = formatter_.load(std::memory_order_acquire)) {
    formatter->format(message, line);
  } else {
    line += message.message;
  }
}

}  // namespace ombrix::platform

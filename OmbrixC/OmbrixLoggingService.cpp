#include "OmbrixC/OmbrixLoggingService.h"

#include <memory>
#include <string>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"

namespace {

using ombrix::LoggingService;

LoggingService& from(OmbrixLoggingService* self) {
  return *reinterpret_cast<LoggingService*>(self);
}
const LoggingService& from(const OmbrixLoggingService* self) {
  return *reinterpret_cast<const LoggingService*>(self);
}

/// Passes lines to the functions of a C caller.
class FunctionLogger final : public ombrix::platform::DDLogger {
 public:
  explicit FunctionLogger(const OmbrixLogger& functions) : functions_(functions) {}

  void log(const ombrix::platform::DDLogMessage& message) override {
    std::string line;
    appendLine(message, line);
    functions_.log(functions_.context, static_cast<std::uint32_t>(message.flag), line.c_str());
  }
  void flush() override {
    if (functions_.flush != nullptr) functions_.flush(functions_.context);
  }

 private:
  const OmbrixLogger functions_;
};

}  // namespace

OmbrixLoggingService* ombrix_LoggingService_sharedInstance(void) {
  return reinterpret_cast<OmbrixLoggingService*>(&LoggingService::sharedInstance());
}

bool ombrix_LoggingService_extraLoggingEnabled(const OmbrixLoggingService* self) {
  return from(self).extraLoggingEnabled();
}

void ombrix_LoggingService_setExtraLoggingEnabled_(OmbrixLoggingService* self, bool isEnabled) {
  from(self).setExtraLoggingEnabled(isEnabled);
}

void ombrix_LoggingService_attachLogger_(OmbrixLoggingService* self, OmbrixLogger logger) {
  if (logger.log != nullptr) from(self).attach(std::make_shared<FunctionLogger>(logger));
}

OmbrixData ombrix_LoggingService_historicalLog(const OmbrixLoggingService* self) {
  return ombrix::c::copied(from(self).historicalLog());
}

char* ombrix_LoggingService_historicalLogText(const OmbrixLoggingService* self) {
  return ombrix::c::copied(from(self).historicalLogText());
}

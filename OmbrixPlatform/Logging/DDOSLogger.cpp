#include "OmbrixPlatform/Logging/DDOSLogger.hpp"

#include <utility>

#include "OmbrixPlatform/Logging/SystemLog.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {

DDOSLogger::DDOSLogger(std::string subsystem, std::string category)
    : subsystem_(std::move(subsystem)), category_(std::move(category)) {}

void DDOSLogger::log(const DDLogMessage& message) {
  std::string line;
  appendLine(message, line);
  services().systemLog.get().write({.text = line,
                                    .flag = message.flag,
                                    .subsystem = subsystem_,
                                    .category = category_,
                                    .file = message.file,
                                    .function = message.function,
                                    .line = message.line});
}

}  // namespace ombrix::platform

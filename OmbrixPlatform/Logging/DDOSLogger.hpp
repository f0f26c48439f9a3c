#pragma once

#include <string>

#include "OmbrixPlatform/Logging/DDLogger.hpp"

namespace ombrix::platform {

/// Passes messages to the system's log, the `systemLog` of `services()`. Any thread.
class DDOSLogger final : public DDLogger {
 public:
  /// \param subsystem the owner of the messages, in reverse domain notation.
  /// \param category the part of the subsystem.
  DDOSLogger(std::string subsystem, std::string category);

  [[nodiscard]] const std::string& subsystem() const { return subsystem_; }
  [[nodiscard]] const std::string& category() const { return category_; }

  void log(const DDLogMessage& message) override;

 private:
  const std::string subsystem_;
  const std::string category_;
};

}  // namespace ombrix::platform

#pragma once

#include <string>

#include "OmbrixPlatform/Logging/DDLogger.hpp"

namespace ombrix {

/// The lines of the log files: date and time, a mark for the gravity, the message, and where it
/// comes from. Any thread; holds nothing that changes.
///
///     05/01/2024 10:30:30:250 🚨   Data: bad row | [LocationCSVParser parse(url:)]:42
class OmbrixLogFormatter final : public platform::DDLogFormatter {
 public:
  void format(const platform::DDLogMessage& message, std::string& line) const override;
};

}  // namespace ombrix

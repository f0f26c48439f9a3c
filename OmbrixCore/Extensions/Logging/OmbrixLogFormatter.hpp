#pragma once

#include <string>

#include "OmbrixPlatform/Logging/DDLogger.hpp"

namespace ombrix {

/// Formats the lines of the log files: date and time, a symbol for the severity, the message, and
/// its origin. Any thread; has no mutable state.
///
///     05/01/2024 10:30:30:250 🚨   Data: bad row | [LocationCSVParser parse(url:)]:42
class OmbrixLogFormatter final : public platform::DDLogFormatter {
 public:
  void format(const platform::DDLogMessage& message, std::string& line) const override;
};

}  // namespace ombrix

#pragma once

#include <string>

#include "OmbrixPlatform/Logging/DDLogger.hpp"

namespace ombrix {

/// Formats the lines of the system's log, which adds the time itself. Any thread.
///
///     Data: bad row | LocationCSVParser.parse(url:) + 42
class OmbrixOSLogFormatter final : public platform::DDLogFormatter {
 public:
  void format(const platform::DDLogMessage& message, std::string& line) const override;
};

}  // namespace ombrix

#pragma once

#include <string>
#include <vector>

#include "OmbrixPlatform/Logging/SystemLog.hpp"

namespace ombrix::platform {

/// The "NAME=value" fields of an entry, in the journal's format.
std::vector<std::string> journalFields(const SystemLogEntry& entry);

/// The syslog priority of a message: 3 for an error to 7 for debug and verbose.
int syslogPriority(DDLogFlag flag) noexcept;

}  // namespace ombrix::platform

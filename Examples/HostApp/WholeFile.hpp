#pragma once

#include <string>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::hostapp {

/// The contents of a file; one that is not there or cannot be read ends the command.
platform::Data readWholeFile(const std::string& path);

/// Writes a file, replacing one that is there only once everything is written; failures end the
/// command.
void writeWholeFile(const std::string& path, platform::DataView contents);

}  // namespace ombrix::hostapp

#pragma once

#include <functional>
#include <memory>
#include <string>

#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::hostapp {

/// The contents of a file; one that is not there or cannot be read ends the command.
platform::Data readWholeFile(const std::string& path);

/// Writes a file, replacing one that is there only once everything is written; failures, also what
/// the closure throws, end the command and leave an older file as it was.
///
/// @param write Is given the open stream.
void replaceFile(const std::string& path,
                 const std::function<void(const std::shared_ptr<platform::OutputStream>&)>& write);

}  // namespace ombrix::hostapp

#pragma once

#include <string>

#include "Examples/HostApp/Help/CommandTree.hpp"

namespace ombrix::hostapp {

/// The manual page of the program with all its commands, in the man macros of roff.
std::string manPage(const CommandHelp& program, const std::string& version);

}  // namespace ombrix::hostapp

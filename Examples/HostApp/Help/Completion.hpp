#pragma once

#include <string>

#include "Examples/HostApp/Help/CommandTree.hpp"

namespace ombrix::hostapp {

/// Scripts by which shells complete the program's commands, options, their words and files.
std::string bashCompletion(const CommandHelp& program);
std::string zshCompletion(const CommandHelp& program);
std::string fishCompletion(const CommandHelp& program);

}  // namespace ombrix::hostapp

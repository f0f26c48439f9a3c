#pragma once

#include <string>
#include <string_view>

namespace ombrix::hostapp {

/// A file's name, or a line with one in it, in a form that may be shown: U+FFFD replaces control
/// characters other than line ends, since they would control a terminal.
std::string shownName(std::string_view name);

}  // namespace ombrix::hostapp

#pragma once

#include <string>
#include <string_view>

namespace ombrix::hostapp {

/// A file's name, or a line with one in it, as it may be shown: U+FFFD stands for control
/// characters, which would steer a terminal, but for line ends.
std::string shownName(std::string_view name);

}  // namespace ombrix::hostapp

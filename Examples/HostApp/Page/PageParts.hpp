#pragma once

#include <string_view>

namespace ombrix::hostapp {

/// page.css and page.js, which the build compiles in.
extern const std::string_view kPageStyle;
extern const std::string_view kPageScript;

}  // namespace ombrix::hostapp

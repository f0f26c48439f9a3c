#pragma once

#include <string>

#include "OmbrixPlatform/Text/NSAttributedString.hpp"

namespace ombrix::hostapp {

/// How values look: bold numbers, and unit letters in a quieter grey.
platform::NSAttributedString::Attributes valueAttributes();

/// An attributed text as a terminal draws it: bold fonts and colours become escape sequences.
std::string drawnForTerminal(const platform::NSAttributedString& text);

/// For standard output: drawn where it takes style, the plain text elsewhere.
std::string forStandardOutput(const platform::NSAttributedString& text);

}  // namespace ombrix::hostapp

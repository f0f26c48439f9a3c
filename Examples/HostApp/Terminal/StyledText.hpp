#pragma once

#include <string>
#include <string_view>

#include "OmbrixPlatform/Text/NSAttributedString.hpp"

namespace ombrix::hostapp {

/// An attributed text as a terminal draws it: bold fonts and colours become escape sequences.
std::string drawnForTerminal(const platform::NSAttributedString& text);

/// For standard output: styled if it supports that, otherwise the plain text.
std::string forStandardOutput(const platform::NSAttributedString& text);

/// A text in a colour of its own, for terminals.
std::string inColour(std::string_view text, const platform::UIColor& colour);

}  // namespace ombrix::hostapp

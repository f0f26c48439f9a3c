#pragma once

#include <string>
#include <string_view>

#include "OmbrixPlatform/Text/NSAttributedString.hpp"

namespace ombrix::hostapp {

/// The text, escaped for HTML and for attributes in double quotes.
std::string escaped(std::string_view text);

/// A styled value in HTML: bold parts in <b>, the others in <i>.
std::string markedUp(const platform::NSAttributedString& text);

}  // namespace ombrix::hostapp

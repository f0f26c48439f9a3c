#pragma once

#include <string>
#include <string_view>

#include "OmbrixPlatform/Text/NSAttributedString.hpp"

namespace ombrix::hostapp {

/// A text as it stands in HTML and in attributes between double quotes.
std::string escaped(std::string_view text);

/// A styled value in HTML: bold parts in <b>, the others in <i>.
std::string markedUp(const platform::NSAttributedString& text);

}  // namespace ombrix::hostapp

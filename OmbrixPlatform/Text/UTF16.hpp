#pragma once

#include <string>
#include <string_view>

namespace ombrix::platform {

/// A text in UTF-16; bytes that are no UTF-8 become U+FFFD. Any thread.
std::u16string utf16From(std::string_view utf8);

/// A text in UTF-8; a lone surrogate becomes U+FFFD. Any thread.
std::string utf8From(std::u16string_view utf16);

}  // namespace ombrix::platform

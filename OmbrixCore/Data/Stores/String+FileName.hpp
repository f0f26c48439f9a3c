#pragma once

#include <string>
#include <string_view>

namespace ombrix {

/// A text as part of a file name: converted to ASCII where that is possible, without newlines, NUL,
/// symbols, and the characters /\?%*|"<>. It may be empty, and two texts may give the same.
///
/// @param text UTF-8. What has no form in ASCII is left out.
std::string sanitizedFileName(std::string_view text);

}  // namespace ombrix

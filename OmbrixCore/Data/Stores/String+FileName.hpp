#pragma once

#include <string>
#include <string_view>

namespace ombrix {

/// A text as part of a file name: converted to ASCII where possible, without newlines, NUL,
/// symbols, and the characters /\?%*|"<>. The result may be empty, and two texts may give the same
/// one.
///
/// @param text UTF-8. Characters without a form in ASCII are left out.
std::string sanitizedFileName(std::string_view text);

}  // namespace ombrix

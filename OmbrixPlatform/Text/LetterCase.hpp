#pragma once

#include <string>

namespace ombrix::platform {

/// The text in capitals, by language-independent rules: "Fuß" gives "FUSS". Any thread.
std::string uppercased(std::string text);

/// The text in lower case, character by character, by language-independent rules. Any
/// thread.
std::string lowercased(std::string text);

}  // namespace ombrix::platform

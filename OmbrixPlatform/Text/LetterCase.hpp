#pragma once

#include <string>

namespace ombrix::platform {

/// The text in capitals, by the rules that hold without a language: "Fuß" gives "FUSS". Any thread.
std::string uppercased(std::string text);

/// The text in small letters, character by character, by the rules that hold without a language.
/// Any thread.
std::string lowercased(std::string text);

}  // namespace ombrix::platform

#pragma once

#include <string>
#include <string_view>

namespace ombrix::detail {

/// A text in lower case; refers to `storage` if anything had to change, otherwise to the text.
std::string_view lowered(std::string_view text, std::string& storage);

/// The same for a text whose bytes are its characters.
std::string_view loweredBytes(std::string_view text, std::string& storage);

/// A text as the two flags of a comparison require; refers to `storage` in the same way.
std::string_view comparable(std::string_view text, bool ignoreCase, bool trimWhiteSpaces,
                            std::string& storage);

}  // namespace ombrix::detail

#pragma once

#include <string>
#include <string_view>

namespace ombrix::detail {

/// A text in small letters; borrowed from `storage` when anything had to change.
std::string_view lowered(std::string_view text, std::string& storage);

/// The same for a text whose bytes are its characters.
std::string_view loweredBytes(std::string_view text, std::string& storage);

/// A text as the two flags of a comparison want it; borrowed from `storage` likewise.
std::string_view comparable(std::string_view text, bool ignoreCase, bool trimWhiteSpaces,
                            std::string& storage);

}  // namespace ombrix::detail

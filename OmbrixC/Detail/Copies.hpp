#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OmbrixC/OmbrixTypes.h"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::c {

/// A copy of a text for a C caller to own, cut at an inner NUL; NULL when memory ran out.
char* copied(std::string_view text) noexcept;

/// The same; NULL for nothing.
inline char* copied(const std::optional<std::string>& text) noexcept {
  return text ? copied(std::string_view(*text)) : nullptr;
}

/// A copy of bytes for a C caller to own; no bytes for an empty value, and when memory ran out.
OmbrixData copied(const std::optional<platform::Data>& data) noexcept;

/// The file URL of a C caller.
/// @throws platform::FileError which names the text, when it is not a file URL
platform::URL fileURLFrom(const char* url);

/// A text from a C caller; NULL is the empty text.
inline std::string_view textFrom(const char* text) noexcept { return text == nullptr ? "" : text; }

}  // namespace ombrix::c

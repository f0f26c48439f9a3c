#pragma once

#include <optional>
#include <string>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// The text of bytes in UTF-8; empty when they are not valid UTF-8. Any thread.
std::optional<std::string> stringFromUTF8(DataView bytes);

/// The same, with U+FFFD for every invalid byte. Any thread.
std::string stringFromUTF8Repaired(DataView bytes);

}  // namespace ombrix::platform

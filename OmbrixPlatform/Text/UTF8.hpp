#pragma once

#include <optional>
#include <string>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// The text that bytes in UTF-8 stand for; nothing when they are not valid UTF-8. Any thread.
std::optional<std::string> stringFromUTF8(DataView bytes);

/// The same, with U+FFFD for every byte that is part of no character. Any thread.
std::string stringFromUTF8Repaired(DataView bytes);

}  // namespace ombrix::platform

#pragma once

#include <string_view>

namespace ombrix {

/// The version of this library, as in "0.1.0".
std::string_view libraryVersion() noexcept;

}  // namespace ombrix

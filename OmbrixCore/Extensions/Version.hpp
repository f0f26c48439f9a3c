#pragma once

#include <string_view>

namespace ombrix {

/// The version of this library, for example "0.1.0".
std::string_view libraryVersion() noexcept;

}  // namespace ombrix

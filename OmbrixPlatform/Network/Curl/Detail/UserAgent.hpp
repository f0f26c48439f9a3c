#pragma once

#include <string>

namespace ombrix::platform::detail {

/// The "User-Agent" of requests that name none: the main bundle's name and version, or the
/// program's name where the bundle has none; an unknown version is left out.
[[nodiscard]] std::string userAgentOfMainBundle();

}  // namespace ombrix::platform::detail

#pragma once

#include <string>

namespace ombrix::platform::detail {

/// The "User-Agent" of requests that name none: name and version of the main bundle, or of the
/// program where that says nothing; the version is left out where nobody knows it.
[[nodiscard]] std::string userAgentOfMainBundle();

}  // namespace ombrix::platform::detail

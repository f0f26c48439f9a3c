#pragma once

#include <string>

#include "OmbrixPlatform/Bundles/Bundle.hpp"

namespace ombrix {

/// The version of a bundle that users see, for example "4.2"; empty when it has none. Any
/// thread.
std::string version(const platform::Bundle& bundle);

/// The build number of a bundle; empty when it has none. Any thread.
std::string build(const platform::Bundle& bundle);

}  // namespace ombrix

#pragma once

#include <string>

#include "OmbrixPlatform/Bundles/Bundle.hpp"

namespace ombrix {

/// The version that a bundle is known by to users, as in "4.2"; empty when it says none. Any
/// thread.
std::string version(const platform::Bundle& bundle);

/// The number of the build that the bundle comes from; empty when it says none. Any thread.
std::string build(const platform::Bundle& bundle);

}  // namespace ombrix

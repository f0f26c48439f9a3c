#pragma once

#include <span>

#include "OmbrixPlatform/Bundles/BuiltInTexts.hpp"

namespace ombrix::detail {

/// The tables of OmbrixCore/Resources, which the build compiles in. Any thread.
std::span<const platform::BuiltInTable> builtInTables();

}  // namespace ombrix::detail

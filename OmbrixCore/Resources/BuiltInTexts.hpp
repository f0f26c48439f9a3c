#pragma once

#include <span>

#include "OmbrixPlatform/Bundles/BuiltInTexts.hpp"

namespace ombrix::detail {

/// The tables of OmbrixCore/Resources, compiled into the library. Any thread.
std::span<const platform::BuiltInTable> builtInTables();

}  // namespace ombrix::detail

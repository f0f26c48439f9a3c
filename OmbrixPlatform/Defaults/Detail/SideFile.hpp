#pragma once

#include <string>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// Makes a file that must not be there yet, for its owner's eyes alone; without one, `errno` says
/// why (EEXIST).
///
/// It belongs to whom its folder belongs to: what root makes on a visit would else keep the user
/// out of his own settings for good.
Descriptor makeSideFile(const std::string& path, int flags);

/// The same, or the file that is there; no link is followed.
Descriptor openSideFile(const std::string& path, int flags);

}  // namespace ombrix::platform::detail

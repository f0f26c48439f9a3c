#include "OmbrixCore/Extensions/Version.hpp"

namespace ombrix {

std::string_view libraryVersion() noexcept { return OMBRIX_VERSION; }

}  // namespace ombrix

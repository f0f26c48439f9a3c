#pragma once

#include <string_view>

namespace ombrix::platform {

/// Whether an identifier such as "de", "de_DE" or "zh-Hant-TW" names a known language and, if it
/// names a region, a known region. `Locale` treats all others as "en_US". Any thread.
bool isLocaleIdentifier(std::string_view identifier);

}  // namespace ombrix::platform

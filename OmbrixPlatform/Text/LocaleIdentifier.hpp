#pragma once

#include <string_view>

namespace ombrix::platform {

/// Whether an identifier such as "de", "de_DE" or "zh-Hant-TW" names a language that there is, and,
/// if it names a region, one that there is. `Locale` takes what is not for "en_US". Any thread.
bool isLocaleIdentifier(std::string_view identifier);

}  // namespace ombrix::platform

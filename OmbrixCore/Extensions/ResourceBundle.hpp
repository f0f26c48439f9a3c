#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix {

/// The library's own bundle, with its texts: "share/OmbrixCore" above the installed library, or the
/// bundle that the host has set. Any thread.
platform::Bundle& resourceBundle();

/// Sets another bundle; the host calls it before it uses the library. Null restores the library's
/// own. Returns the previous bundle (null if none was created yet).
std::shared_ptr<platform::Bundle> setResourceBundle(std::shared_ptr<platform::Bundle> bundle);

/// A text of the library in the user's language: from the default table of its bundle, otherwise
/// from the tables compiled into the library. Any thread.
/// @param fallback The English text, for a key in neither of them.
std::string localizedString(std::string_view key, std::string_view fallback);

/// The same in the language of a locale; in the user's if none is given.
std::string localizedString(std::string_view key, std::string_view fallback,
                            const std::optional<platform::Locale>& locale);

}  // namespace ombrix

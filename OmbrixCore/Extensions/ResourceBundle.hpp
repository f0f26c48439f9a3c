#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix {

/// The library's own bundle, with its texts: "share/OmbrixCore" above the installed library, or
/// the one that the host has set. Any thread.
platform::Bundle& resourceBundle();

/// For the host to put another bundle in place, before it uses the library; null brings the
/// library's own back. Gives the one it replaces (null when none was made yet).
std::shared_ptr<platform::Bundle> setResourceBundle(std::shared_ptr<platform::Bundle> bundle);

/// A text of the library in the user's language: from the default table of its bundle, else from
/// the tables compiled into the library. Any thread.
/// @param fallback The English text, for a key that neither has.
std::string localizedString(std::string_view key, std::string_view fallback);

/// The same in the language of a locale; in the user's without one.
std::string localizedString(std::string_view key, std::string_view fallback,
                            const std::optional<platform::Locale>& locale);

}  // namespace ombrix

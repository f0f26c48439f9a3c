#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix {

/// The items of a query, in the order in which they are written.
using QueryComponents = platform::OrderedDictionary<std::string>;

/// A URL from a path and the items of a query, resolved against a base.
///
/// @param withQueryComponenets Keys and values before percent-encoding.
/// @return Nothing when the text is not a URL.
// Kept: spelled so. Callers know it by this name.
[[nodiscard]] std::optional<platform::URL> urlWithQueryComponenets(
    std::string_view string, const platform::URL& relativeTo,
    const std::optional<QueryComponents>& withQueryComponenets = std::nullopt);

}  // namespace ombrix

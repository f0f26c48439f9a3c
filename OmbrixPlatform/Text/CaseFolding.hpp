#pragma once

#include <string>
#include <string_view>

namespace ombrix::platform {

/// Removes the marks from Latin, Greek and Cyrillic letters, as an index or a search field does:
/// "École" gives "Ecole".
///
/// Other scripts keep their marks, which are part of their letters, and so do letters whose stroke
/// or ligature is not a mark: "ø", "ł", "ß", "が". Changed text is in canonical decomposition. Any
/// thread.
std::string foldingDiacritics(std::string_view text);

}  // namespace ombrix::platform

#pragma once

#include <string>
#include <string_view>

namespace ombrix::platform {

/// The text without the marks on Latin, Greek and Cyrillic letters, as an index or a search field
/// sees it: "École" gives "Ecole".
///
/// Other scripts keep their marks, which are parts of their letters there, and so do letters whose
/// stroke or ligature is not a mark: "ø", "ł", "ß", "が". The result is canonically decomposed
/// where it was changed. Any thread.
std::string foldingDiacritics(std::string_view text);

}  // namespace ombrix::platform

#pragma once

#include <string>
#include <string_view>

namespace ombrix::hostapp {

/// A text of this program in the user's language; the English text is its key. A text that is
/// missing in the language's table stays English. Any thread.
std::string text(std::string_view english);

/// The language of `text`, as in "de".
std::string textLanguage();

}  // namespace ombrix::hostapp

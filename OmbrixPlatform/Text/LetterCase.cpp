#include "OmbrixPlatform/Text/LetterCase.hpp"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {

std::string uppercased(std::string text) {
  if (detail::isAscii(text)) {
    for (char& c : text) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
  }
  std::string result;
  icu::StringByteSink sink(&result, static_cast<std::int32_t>(text.size()));
  UErrorCode status = U_ZERO_ERROR;
  icu::CaseMap::utf8ToUpper("", 0, {text.data(), static_cast<std::int32_t>(text.size())}, sink,
                            nullptr, status);
  return U_FAILURE(status) ? text : result;
}

std::string lowercased(std::string text) {
  const auto characters =
      icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
  icu::UnicodeString small;
  for (std::int32_t i = 0; i < characters.length(); i = characters.moveIndex32(i, 1)) {
    const UChar32 character = characters.char32At(i);
    // The only capital whose lower-case form is two code points: an I with a dot.
    if (character == 0x0130) {
      small.append(u"i\u0307", 2);
    } else {
      small.append(u_tolower(character));
    }
  }
  text.clear();
  small.toUTF8String(text);
  return text;
}

}  // namespace ombrix::platform

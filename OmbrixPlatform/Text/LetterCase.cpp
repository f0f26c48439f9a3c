#include "OmbrixPlatform/Text/LetterCase.hpp"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>

#include "OmbrixPlatform/Coding/Detail/Utf.hpp"

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

}  // namespace ombrix::platform

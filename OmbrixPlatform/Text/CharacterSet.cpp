#include "OmbrixPlatform/Text/CharacterSet.hpp"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace ombrix::platform {

bool contains(CharacterSet set, char32_t character) noexcept {
  const auto codePoint = static_cast<UChar32>(character);
  switch (set) {
    case CharacterSet::letters:
      return u_isalpha(codePoint) != 0;
    case CharacterSet::decimalDigits:
      return u_isdigit(codePoint) != 0;
    case CharacterSet::whitespacesAndNewlines:
      return (codePoint >= 0x09 && codePoint <= 0x0D) || codePoint == 0x85 ||
             u_isJavaSpaceChar(codePoint) != 0;
  }
  return false;
}

std::string trimmingCharacters(std::string_view text, CharacterSet set) {
  const auto characters =
      icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
  std::int32_t begin = 0;
  std::int32_t end = characters.length();
  while (begin < end && contains(set, static_cast<char32_t>(characters.char32At(begin)))) {
    begin = characters.moveIndex32(begin, 1);
  }
  while (begin < end && contains(set, static_cast<char32_t>(characters.char32At(end - 1)))) {
    end = characters.moveIndex32(end, -1);
  }
  std::string trimmed;
  characters.tempSubStringBetween(begin, end).toUTF8String(trimmed);
  return trimmed;
}

}  // namespace ombrix::platform

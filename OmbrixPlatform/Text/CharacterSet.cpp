#include "OmbrixPlatform/Text/CharacterSet.hpp"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace ombrix::platform {
namespace {

bool isMember(UChar32 character, CharacterSet set) noexcept {
  const auto category = u_charType(character);
  switch (set) {
    case CharacterSet::decimalDigits:
      return category == U_DECIMAL_DIGIT_NUMBER;
    case CharacterSet::whitespacesAndNewlines:
      return (character >= 0x09 && character <= 0x0D) || character == 0x85 ||
             category == U_SPACE_SEPARATOR || category == U_LINE_SEPARATOR ||
             category == U_PARAGRAPH_SEPARATOR;
  }
  return false;
}

}  // namespace

std::string trimmingCharacters(std::string_view text, CharacterSet set) {
  const auto characters =
      icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
  std::int32_t begin = 0;
  std::int32_t end = characters.length();
  while (begin < end && isMember(characters.char32At(begin), set)) {
    begin = characters.moveIndex32(begin, 1);
  }
  while (begin < end && isMember(characters.char32At(end - 1), set)) {
    end = characters.moveIndex32(end, -1);
  }
  std::string trimmed;
  characters.tempSubStringBetween(begin, end).toUTF8String(trimmed);
  return trimmed;
}

}  // namespace ombrix::platform

#include "OmbrixPlatform/Text/UTF16.hpp"

#include <unicode/unistr.h>

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {

std::u16string utf16From(std::string_view utf8) {
  // Most values are short ASCII texts, where every byte is a unit.
  if (detail::isAscii(utf8)) return {utf8.begin(), utf8.end()};
  const auto text =
      icu::UnicodeString::fromUTF8({utf8.data(), static_cast<std::int32_t>(utf8.size())});
  return {text.getBuffer(), static_cast<std::size_t>(text.length())};
}

std::string utf8From(std::u16string_view utf16) {
  std::string result;
  const char16_t* units = utf16.data();
  icu::UnicodeString(false, units, static_cast<std::int32_t>(utf16.size())).toUTF8String(result);
  return result;
}

}  // namespace ombrix::platform

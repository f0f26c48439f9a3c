#include "OmbrixPlatform/Text/UTF8.hpp"

#include <string_view>

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {

std::optional<std::string> stringFromUTF8(DataView bytes) {
  const std::string_view text = textOf(bytes);
  if (!detail::isValidUtf8(text)) return std::nullopt;
  return std::string(text);
}

std::string stringFromUTF8Repaired(DataView bytes) {
  const std::string_view text = textOf(bytes);
  if (detail::isValidUtf8(text)) return std::string(text);
  std::string repaired;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    const char* const begin = at;
    char32_t codePoint = 0;
    if (detail::nextCodePoint(at, end, codePoint)) {
      repaired.append(begin, at);
    } else {
      repaired += "\uFFFD";
      ++at;
    }
  }
  return repaired;
}

}  // namespace ombrix::platform

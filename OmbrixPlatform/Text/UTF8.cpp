#include "OmbrixPlatform/Text/UTF8.hpp"

#include <string_view>

#include "OmbrixPlatform/Coding/Detail/Utf.hpp"

namespace ombrix::platform {

std::optional<std::string> stringFromUTF8(DataView bytes) {
  const std::string_view text = textOf(bytes);
  if (!detail::isValidUtf8(text)) return std::nullopt;
  return std::string(text);
}

}  // namespace ombrix::platform

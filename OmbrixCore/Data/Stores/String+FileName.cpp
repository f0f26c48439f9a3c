#include "OmbrixCore/Data/Stores/String+FileName.hpp"

#include "OmbrixPlatform/Text/LossyASCII.hpp"

namespace ombrix {

std::string sanitizedFileName(std::string_view text) {
  // The symbols ($ and so on) are those that ASCII has; nothing in ASCII is an illegal character,
  // though NUL would end the name.
  constexpr std::string_view kRemoved(
      "\n\v\f\r"
      "\0"
      "$+<=>^`|~"
      "/\\?%*|\"<>",
      24);
  std::string name = platform::lossyASCII(text);
  std::erase_if(name, [&](char c) { return kRemoved.contains(c); });
  return name;
}

}  // namespace ombrix

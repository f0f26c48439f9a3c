#include "OmbrixCore/Data/Stores/String+FileName.hpp"

#include "OmbrixPlatform/Text/LossyASCII.hpp"

namespace ombrix {

std::string sanitizedFileName(std::string_view text) {
  // The symbols ($ and so on) are those that ASCII has; nothing in ASCII is an illegal character,
  // though NUL would end the name.
  static constexpr char kRemoved[] = "\0\n\v\f\r$+<=>^`|~/\\?%*\"";
  constexpr std::string_view kSet(kRemoved, sizeof kRemoved - 1);
  std::string name = platform::lossyASCII(text);
  std::erase_if(name, [&](char c) { return kSet.contains(c); });
  return name;
}

}  // namespace ombrix

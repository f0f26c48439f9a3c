#include "Examples/HostApp/Terminal/ShownName.hpp"

namespace ombrix::hostapp {

std::string shownName(std::string_view name) {
  std::string shown;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const auto byte = static_cast<unsigned char>(name[i]);
    const auto next = static_cast<unsigned char>(i + 1 < name.size() ? name[i + 1] : 0);
    const bool isC1 = byte == 0xC2 && next >= 0x80 && next < 0xA0;
    if (isC1) ++i;
    if (isC1 || byte == 0x7F || (byte < 0x20 && byte != '\n')) {
      shown += "\xEF\xBF\xBD";
    } else {
      shown += name[i];
    }
  }
  return shown;
}

}  // namespace ombrix::hostapp

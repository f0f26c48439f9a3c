// Strings tables in all encodings. Each text that is read must survive being written plainly.

#include "OmbrixPlatform/Bundles/StringsTable.hpp"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ombrix::platform;
  const auto table = StringsTable::parse(std::as_bytes(std::span(data, size)));
  if (table.size() > size) std::abort();
  // Whatever came before, a sound entry in a line of its own is found, unless a comment holds it.
  const std::string text(reinterpret_cast<const char*>(data), size);
  const bool isUtf16 = text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff");
  if (isUtf16 || text.find_first_of("/\"'\\") != std::string::npos) return 0;
  const auto longer = StringsTable::parse(bytesOf(text + "\n;\n\"sound key\" = \"sound\";\n"));
  const std::string* found = longer.find("sound key");
  if (found == nullptr || *found != "sound") std::abort();
  return 0;
}

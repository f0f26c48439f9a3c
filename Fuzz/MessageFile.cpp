// Any bytes as the file of a message, and as its name: reading survives them, and what is read is
// written the same again.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Messaging/Detail/MessageFile.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ombrix::platform;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string name = detail::messageFileName(text);
  if (detail::identifierOfMessageFile(name) != text) std::abort();
  if (name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) std::abort();
  if (const auto identifier = detail::identifierOfMessageFile(text)) {
    if (detail::messageFileName(*identifier) != text) std::abort();
  }
  try {
    const auto message = detail::decodeMessage(std::as_bytes(std::span(data, size)));
    const Data bytes = detail::encodeMessage(message);
    const auto again = detail::decodeMessage(bytes);
    // By bytes: a number that is none equals nothing.
    if (again.id != message.id || detail::encodeMessage(again) != bytes) std::abort();
  } catch (const PropertyListError&) {
  }
  return 0;
}

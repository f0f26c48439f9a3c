#include "OmbrixPlatform/Messaging/Detail/MessageFile.hpp"

#include <algorithm>
#include <charconv>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr const char* kSender = "sender";
constexpr const char* kNumber = "number";
constexpr const char* kMessage = "message";
constexpr std::string_view kExtension = ".message";

constexpr bool isKept(char c, bool isFirst) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || (c == '.' && !isFirst);  // a leading one would hide the file
}

}  // namespace

Data encodeMessage(const Message& message) {
  return PropertyListSerialization::write(PropertyList::Dictionary{
      {kSender, message.id.sender}, {kNumber, message.id.number}, {kMessage, message.content}});
}

Message decodeMessage(DataView bytes) {
  const PropertyList list = PropertyListSerialization::read(bytes);
  const PropertyList* const sender = list.find(kSender);
  const PropertyList* const number = list.find(kNumber);
  const PropertyList* const content = list.find(kMessage);
  if (sender == nullptr || !sender->text() || number == nullptr || !number->integer() ||
      content == nullptr) {
    throw PropertyListError("the property list is not a message");
  }
  return {{*sender->text(), *number->integer()}, *content};
}

std::string messageFileName(std::string_view identifier) {
  std::string name;
  name.reserve(identifier.size() + kExtension.size());
  for (const char c : identifier) {
    if (isKept(c, name.empty())) {
      name += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      name.append({'%', kHexDigits[byte >> 4U], kHexDigits[byte & 15U]});
    }
  }
  return name.append(kExtension);
}

std::optional<std::string> identifierOfMessageFile(std::string_view fileName) {
  if (!fileName.ends_with(kExtension)) return std::nullopt;
  std::string_view rest = fileName.substr(0, fileName.size() - kExtension.size());
  std::string identifier;
  while (!rest.empty()) {
    if (rest[0] != '%') {
      identifier += rest[0];
      rest.remove_prefix(1);
      continue;
    }
    unsigned byte = 0;
    const char* const end = rest.data() + std::min<std::size_t>(rest.size(), 3);
    if (std::from_chars(rest.data() + 1, end, byte, 16).ptr != rest.data() + 3) {
      return std::nullopt;
    }
    identifier += static_cast<char>(byte);
    rest.remove_prefix(3);
  }
  // Ignores names that are spelled differently from ours.
  if (messageFileName(identifier) != fileName) return std::nullopt;
  return identifier;
}

}  // namespace ombrix::platform::detail

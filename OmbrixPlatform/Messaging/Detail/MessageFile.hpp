#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// Tells one message from all others, also from those of the same content.
struct MessageId {
  std::string sender;       ///< A process.
  std::int64_t number = 0;  ///< Counts the messages of the sender.

  friend bool operator==(const MessageId&, const MessageId&) = default;
};

/// What the file of a message holds: a property list of "sender", "number" and "message".
struct Message {
  MessageId id;
  PropertyList content;

  friend bool operator==(const Message&, const Message&) = default;
};

/// Throws `PropertyListError` for a content that no property list can hold.
Data encodeMessage(const Message& message);

/// Throws `PropertyListError` for bytes that hold no message, whatever they are.
Message decodeMessage(DataView bytes);

/// The file of an identifier: its letters, digits, "-", "_" and inner "." as they are, all other
/// bytes as "%" and two hexadecimal digits, and ".message".
std::string messageFileName(std::string_view identifier);

/// The other way round; nothing for a name that no identifier gives.
std::optional<std::string> identifierOfMessageFile(std::string_view fileName);

}  // namespace ombrix::platform::detail

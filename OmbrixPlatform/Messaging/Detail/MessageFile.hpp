#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// Identifies a message, even among messages with the same content.
struct MessageId {
  std::string sender;       ///< Identifies the process.
  std::int64_t number = 0;  ///< Counts the messages of the sender.

  friend bool operator==(const MessageId&, const MessageId&) = default;
};

/// The content of a message file: a property list of "sender", "number" and "message".
struct Message {
  MessageId id;
  PropertyList content;

  friend bool operator==(const Message&, const Message&) = default;
};

/// Throws `PropertyListError` for a content that a property list cannot represent.
Data encodeMessage(const Message& message);

/// Throws `PropertyListError` for any bytes that are not a message.
Message decodeMessage(DataView bytes);

/// The file name of an identifier: its letters, digits, "-", "_" and inner "." unchanged, all other
/// bytes as "%" and two hexadecimal digits, then ".message".
std::string messageFileName(std::string_view identifier);

/// The identifier of a file name; empty for a name that `messageFileName` never returns.
std::optional<std::string> identifierOfMessageFile(std::string_view fileName);

}  // namespace ombrix::platform::detail

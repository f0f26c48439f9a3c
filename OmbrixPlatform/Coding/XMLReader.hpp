#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Bytes that are not an XML document; `what()` says why and in which line.
class XMLError : public Error {
 public:
  explicit XMLError(const std::string& what, std::size_t offset = 0, bool isUnfinished = false)
      : Error(what), offset_(offset), isUnfinished_(isUnfinished) {}

  /// How many bytes of the document come before the fault.
  [[nodiscard]] std::size_t offset() const noexcept { return offset_; }

  /// Whether the part that begins there has no end, at least not within 1 MiB: reading went on that
  /// far.
  [[nodiscard]] bool isUnfinished() const noexcept { return isUnfinished_; }

 private:
  std::size_t offset_;
  bool isUnfinished_;
};

struct XMLAttribute {
  std::string_view name;
  std::string_view value;
};

/// Receives a document's elements while it is read. Names come without their namespace's prefix.
/// Texts and attributes are UTF-8 and valid during the call only. An exception from a call ends the
/// reading and is passed on.
class XMLHandler {
 public:
  virtual ~XMLHandler() = default;
  virtual void beginElement(std::string_view name, std::span<const XMLAttribute> attributes) = 0;

  /// @param text The text directly in the element, without white space around it; text longer than
  ///   `kMostXMLText` is cut between two characters.
  virtual void endElement(std::string_view name, std::string_view text) = 0;
};

inline constexpr std::size_t kMostXMLDepth = 64;
inline constexpr std::size_t kMostXMLText = 65'536;

/// Reads a document element by element, in memory that does not grow with it.
///
/// A document type declaration is refused: entities could make a small document endless.
/// @param before Read as if it preceded the bytes, such as the root element when only a piece of a
///   document is read.
/// @throws XMLError for bytes that are not a document, and for deeper nesting than `kMostXMLDepth`
///   or a tag or comment of more than about 1 MiB; std::bad_alloc where memory is short
void readXML(DataView bytes, XMLHandler& handler, std::string_view before = {});

}  // namespace ombrix::platform

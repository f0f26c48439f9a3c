#include "OmbrixPlatform/Coding/Detail/PropertyListTree.hpp"

#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"

namespace ombrix::platform::detail {
namespace {

template <class T>
CodingPrimitive require(std::optional<T> value, const PropertyList& plist, CodingPrimitiveKind kind,
                        const CodingPath& path) {
  if (value) return *std::move(value);
  if (PropertyListTree::isNull(plist)) throw DecodingError::valueNotFound(nameOf(kind), path);
  const bool isNumber = plist.real().has_value();
  const bool wantsInteger =
      kind == CodingPrimitiveKind::integer || kind == CodingPrimitiveKind::unsignedInteger;
  if (isNumber && wantsInteger) throw DecodingError::dataCorrupted("The number does not fit", path);
  throw DecodingError::typeMismatch(nameOf(kind), PropertyListTree::kindName(plist), path);
}

template <class T>
std::optional<T> copyOf(const T* value) {
  return value == nullptr ? std::nullopt : std::optional<T>{*value};
}

// A real number that is a whole one also reads as an integer.
template <class T>
std::optional<T> wholeOf(std::optional<T> value, const PropertyList& plist) {
  if (value || plist.kind() != PropertyList::Kind::real) return value;
  return exactly<T>(*plist.real());
}

}  // namespace

bool PropertyListTree::isNull(const PropertyList& value) {
  const std::string* text = value.text();
  return text != nullptr && *text == kPropertyListNull;
}

std::string_view PropertyListTree::kindName(const PropertyList& value) {
  return nameOf(value.kind());
}

CodingPrimitive PropertyListTree::primitive(const PropertyList& value, CodingPrimitiveKind kind,
                                            const Options&, const CodingPath& path) {
  switch (kind) {
    case CodingPrimitiveKind::boolean:
      return require(value.boolean(), value, kind, path);
    case CodingPrimitiveKind::integer:
      return require(wholeOf(value.integer(), value), value, kind, path);
    case CodingPrimitiveKind::unsignedInteger:
      return require(wholeOf(value.unsignedInteger(), value), value, kind, path);
    case CodingPrimitiveKind::real:
      return require(value.real(), value, kind, path);
    case CodingPrimitiveKind::text:
      return require(copyOf(value.text()), value, kind, path);
    case CodingPrimitiveKind::data:
      return require(copyOf(value.data()), value, kind, path);
    case CodingPrimitiveKind::date:
      break;
  }
  return require(value.date(), value, kind, path);
}

PropertyList PropertyListTree::null() { return kPropertyListNull; }

PropertyList PropertyListTree::primitive(const CodingPrimitive& value, const Options&,
                                         const CodingPath&) {
  return std::visit([](const auto& scalar) -> PropertyList { return scalar; }, value);
}

}  // namespace ombrix::platform::detail

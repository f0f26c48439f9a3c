#include "OmbrixPlatform/Coding/Detail/PropertyListTree.hpp"

#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"
#include "OmbrixPlatform/Coding/Detail/PathCost.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"

namespace ombrix::platform::detail {
namespace {

bool isNullText(const PropertyList& value) {
  const std::string* text = value.text();
  return text != nullptr && *text == kPropertyListNull;
}

[[noreturn]] void mismatch(std::string_view expected, const PropertyList& plist,
                           const CodingPath& path) {
  if (isNullText(plist)) throw DecodingError::valueNotFound(expected, path);
  throw DecodingError::typeMismatch(expected, nameOf(plist.kind()), path);
}

template <class T>
CodingPrimitive require(std::optional<T> value, const PropertyList& plist, CodingPrimitiveKind kind,
                        const CodingPath& path) {
  if (value) return *std::move(value);
  const bool isNumber = plist.real().has_value();
  const bool wantsInteger =
      kind == CodingPrimitiveKind::integer || kind == CodingPrimitiveKind::unsignedInteger;
  if (isNumber && wantsInteger) throw DecodingError::dataCorrupted("The number does not fit", path);
  mismatch(nameOf(kind), plist, path);
}

template <class T>
std::optional<T> copyOf(const T* value) {
  return value == nullptr ? std::nullopt : std::optional<T>{*value};
}

/// A long key above many values makes all their paths long, so the work is charged to keep it in
/// proportion to the document.
void charge(const PropertyListTree::Document& document, const CodingPath& path) {
  try {
    document.allowance.spend(pathCost(path));
  } catch (const PropertyListSizeError& error) {
    throw DecodingError::tooLarge(error.what(), path);
  }
}

// A real number without a fraction also reads as an integer.
template <class T>
std::optional<T> wholeOf(std::optional<T> value, const PropertyList& plist) {
  if (value || plist.kind() != PropertyList::Kind::real) return value;
  return exactly<T>(*plist.real());
}

}  // namespace

bool PropertyListTree::isNull(const Document&, Cursor value) { return isNullText(*value); }

OrderedDictionary<const PropertyList*> PropertyListTree::entries(const Document& document,
                                                                 Cursor value,
                                                                 const CodingPath& path) {
  charge(document, path);
  if (value->dictionary() == nullptr) mismatch("a dictionary", *value, path);
  OrderedDictionary<Cursor> entries;
  for (const auto& [key, entry] : *value->dictionary()) entries.set(key, &entry);
  return entries;
}

std::vector<const PropertyList*> PropertyListTree::items(const Document& document, Cursor value,
                                                         const CodingPath& path) {
  charge(document, path);
  if (value->array() == nullptr) mismatch("an array", *value, path);
  std::vector<Cursor> items;
  for (const PropertyList& item : *value->array()) items.push_back(&item);
  return items;
}

PropertyList PropertyListTree::tree(const Document& document, Cursor value,
                                    const CodingPath& path) {
  charge(document, path);
  return *value;
}

CodingPrimitive PropertyListTree::primitive(const Document& document, Cursor cursor,
                                            CodingPrimitiveKind kind, const CodingPath& path) {
  charge(document, path);
  const PropertyList& value = *cursor;
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

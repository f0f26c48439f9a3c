#include "OmbrixPlatform/Coding/Detail/JSONDocument.hpp"

#include <string_view>

#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"

namespace ombrix::platform::detail {

std::shared_ptr<const JSONDocument> checkedDocument(std::string_view text,
                                                    const JSONCodingOptions& options) {
  const auto document = std::make_shared<JSONDocument>();
  document->text = text;
  document->options = options;
  JSONReader reader(bytesOf(document->text), &document->options);
  reader.list(document->values);
  reader.finish();
  return document;
}

bool JSONValues::isNull(const Document& document, Cursor value) {
  return document.text[document.values[value].begin] == 'n';
}

OrderedDictionary<std::uint32_t> JSONValues::entries(const Document& document, Cursor value,
                                                     const CodingPath& path) {
  OrderedDictionary<Cursor> entries;
  JSONReader reader(document, value, path);
  reader.beginObject();
  std::string_view key;
  for (Cursor entry = value + 1; reader.nextKey(key); entry = document.values[entry].next) {
    entries.set(std::string{key}, entry);
    reader.skipKnown(document.values[entry]);
  }
  return entries;
}

std::vector<std::uint32_t> JSONValues::items(const Document& document, Cursor value,
                                             const CodingPath& path) {
  JSONReader(document, value, path).beginArray();
  std::vector<Cursor> items;
  const Cursor behind = document.values[value].next;
  for (Cursor item = value + 1; item != behind; item = document.values[item].next) {
    items.push_back(item);
  }
  return items;
}

CodingPrimitive JSONValues::primitive(const Document& document, Cursor value,
                                      CodingPrimitiveKind kind, const CodingPath& path) {
  JSONReader reader(document, value, path);
  return readPrimitive(reader, kind);
}

JSON JSONValues::tree(const Document& document, Cursor value, const CodingPath& path) {
  return JSONReader(document, value, path).readJSON();
}

}  // namespace ombrix::platform::detail

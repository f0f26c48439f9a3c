#include "OmbrixPlatform/Coding/Detail/JSONDocument.hpp"

#include <string_view>

#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"

namespace ombrix::platform::detail {

std::shared_ptr<const JSONDocument> checkedDocument(std::string_view text,
                                                    std::span<const std::uint32_t> tokens,
                                                    const JSONCodingOptions& options) {
  const auto document = std::make_shared<JSONDocument>();
  document->text = text;
  document->tokens.assign(tokens.begin(), tokens.end());
  document->options = options;
  JSONReader reader(*document, 0, {});
  reader.skip();
  reader.finish();

  document->behind.resize(tokens.size());
  std::vector<std::uint32_t> open;
  for (std::uint32_t token = 0; token < tokens.size(); ++token) {
    const char c = document->text[tokens[token]];
    document->behind[token] = token + 1;
    if (c == '{' || c == '[') {
      open.push_back(token);
    } else if (c == '}' || c == ']') {
      document->behind[open.back()] = token + 1;
      open.pop_back();
    }
  }
  return document;
}

bool JSONTokens::isNull(const Document& document, Cursor token) {
  return document.text[document.tokens[token]] == 'n';
}

OrderedDictionary<std::uint32_t> JSONTokens::entries(const Document& document, Cursor token,
                                                     const CodingPath& path) {
  OrderedDictionary<Cursor> entries;
  JSONReader reader(document, token, path);
  reader.beginObject();
  // A key's token, its colon, then the value; behind that a comma or the end.
  std::string_view key;
  while (reader.nextKey(key)) entries.set(std::string{key}, reader.skipIn(document));
  return entries;
}

std::vector<std::uint32_t> JSONTokens::items(const Document& document, Cursor token,
                                             const CodingPath& path) {
  std::vector<Cursor> items;
  JSONReader reader(document, token, path);
  for (reader.beginArray(); reader.nextItem();) items.push_back(reader.skipIn(document));
  return items;
}

CodingPrimitive JSONTokens::primitive(const Document& document, Cursor token,
                                      CodingPrimitiveKind kind, const CodingPath& path) {
  JSONReader reader(document, token, path);
  return readPrimitive(reader, kind);
}

JSON JSONTokens::tree(const Document& document, Cursor token, const CodingPath& path) {
  return JSONReader(document, token, path).readJSON();
}

}  // namespace ombrix::platform::detail

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/Detail/TreeDecoder.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONCodingOptions.hpp"

namespace ombrix::platform::detail {

/// The place of a value in a document.
struct JSONExtent {
  std::uint32_t begin = 0;  ///< its first byte
  std::uint32_t end = 0;    ///< after it and the white space that follows
  std::uint32_t next = 0;   ///< the number of the value after it and all its contents
};

/// A JSON document that was checked as a whole, for readers that move back and forth in it.
/// Immutable.
struct JSONDocument {
  std::string text;
  std::vector<JSONExtent> values;  ///< in the order of their beginnings
  JSONCodingOptions options;

  [[nodiscard]] const CodingUserInfo& userInfo() const noexcept { return options.userInfo; }
};

/// Copies and checks a document. Throws `DecodingError`.
std::shared_ptr<const JSONDocument> checkedDocument(std::string_view text,
                                                    const JSONCodingOptions& options);

/// JSON for `TreeDecoder`: a value is its number in the document, read by a `JSONReader`.
struct JSONValues {
  using Document = JSONDocument;
  using Cursor = std::uint32_t;
  using Tree = JSON;

  static bool isNull(const Document& document, Cursor value);
  static OrderedDictionary<Cursor> entries(const Document& document, Cursor value,
                                           const CodingPath& path);
  static std::vector<Cursor> items(const Document& document, Cursor value, const CodingPath& path);
  static CodingPrimitive primitive(const Document& document, Cursor value, CodingPrimitiveKind kind,
                                   const CodingPath& path);
  static JSON tree(const Document& document, Cursor value, const CodingPath& path);
};

}  // namespace ombrix::platform::detail

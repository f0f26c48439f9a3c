#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/Detail/TreeDecoder.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONCodingOptions.hpp"

namespace ombrix::platform::detail {

/// A JSON document that was checked from its start to its end, for those who go to and fro in it.
/// Does not change.
struct JSONDocument {
  std::string text;
  std::vector<std::uint32_t> tokens;  ///< where in the text they begin
  std::vector<std::uint32_t> behind;  ///< for each token that begins a value, the one behind it
  JSONCodingOptions options;

  [[nodiscard]] const CodingUserInfo& userInfo() const noexcept { return options.userInfo; }
};

/// Copies and checks a document whose tokens are known. Throws `DecodingError`.
std::shared_ptr<const JSONDocument> checkedDocument(std::string_view text,
                                                    std::span<const std::uint32_t> tokens,
                                                    const JSONCodingOptions& options);

/// JSON for `TreeDecoder`: a value is the number of its first token, read by a `JSONReader`.
struct JSONTokens {
  using Document = JSONDocument;
  using Cursor = std::uint32_t;
  using Tree = JSON;

  static bool isNull(const Document& document, Cursor token);
  static OrderedDictionary<Cursor> entries(const Document& document, Cursor token,
                                           const CodingPath& path);
  static std::vector<Cursor> items(const Document& document, Cursor token, const CodingPath& path);
  static CodingPrimitive primitive(const Document& document, Cursor token, CodingPrimitiveKind kind,
                                   const CodingPath& path);
  static JSON tree(const Document& document, Cursor token, const CodingPath& path);
};

}  // namespace ombrix::platform::detail

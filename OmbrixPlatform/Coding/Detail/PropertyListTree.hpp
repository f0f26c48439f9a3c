#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string_view>

#include "OmbrixPlatform/Coding/Detail/TreeDecoder.hpp"
#include "OmbrixPlatform/Coding/Detail/TreeEncoder.hpp"
#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListView.hpp"

namespace ombrix::platform::detail {

/// What the items of values that are encoded take in memory where they are decoded.
struct ItemMemory {
  std::uint64_t count = 0, bytes = 0, widest = 0;

  void add(std::uint64_t items, std::uint64_t bytesEach) noexcept {
    if (bytesEach <= BinaryPropertyListView::Allowance::kDecoderCost) return;
    count += items;
    bytes += items * bytesEach;
    widest = std::max(widest, bytesEach);
  }
};

struct PropertyListCodingOptions {
  CodingUserInfo userInfo;
  std::shared_ptr<ItemMemory> items = std::make_shared<ItemMemory>();
};

/// Property lists for `TreeDecoder` (those that are values already, as XML is) and `TreeEncoder`.
struct PropertyListTree {
  struct Document {
    PropertyList root;
    CodingUserInfo info;
    mutable BinaryPropertyListView::Allowance allowance;
    [[nodiscard]] const CodingUserInfo& userInfo() const noexcept { return info; }
  };
  using Cursor = const PropertyList*;
  using Tree = PropertyList;
  using Options = PropertyListCodingOptions;

  static bool isNull(const Document&, Cursor value);
  static OrderedDictionary<Cursor> entries(const Document&, Cursor value, const CodingPath& path);
  static std::vector<Cursor> items(const Document&, Cursor value, const CodingPath& path);
  static CodingPrimitive primitive(const Document&, Cursor value, CodingPrimitiveKind kind,
                                   const CodingPath& path);
  static PropertyList tree(const Document& document, Cursor value, const CodingPath& path);
  static PropertyList null();
  static PropertyList primitive(const CodingPrimitive& value, const Options& options,
                                const CodingPath& path);
};

}  // namespace ombrix::platform::detail

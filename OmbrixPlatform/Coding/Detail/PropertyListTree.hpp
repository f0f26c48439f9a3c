#pragma once

#include <string_view>

#include "OmbrixPlatform/Coding/Detail/TreeDecoder.hpp"
#include "OmbrixPlatform/Coding/Detail/TreeEncoder.hpp"
#include "OmbrixPlatform/Coding/PropertyList.hpp"

namespace ombrix::platform::detail {

struct PropertyListCodingOptions {
  CodingUserInfo userInfo;
};

/// Property lists for `TreeDecoder` and `TreeEncoder`.
struct PropertyListTree {
  using Tree = PropertyList;
  using Options = PropertyListCodingOptions;

  static bool isNull(const PropertyList& value);
  static std::string_view kindName(const PropertyList& value);
  static CodingPrimitive primitive(const PropertyList& value, CodingPrimitiveKind kind,
                                   const Options& options, const CodingPath& path);
  static PropertyList null();
  static PropertyList primitive(const CodingPrimitive& value, const Options& options,
                                const CodingPath& path);
};

}  // namespace ombrix::platform::detail

#pragma once

#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"

namespace ombrix::platform {

/// Encodes values as binary property lists. May be used by several threads at once as long as
/// nobody changes its user info.
class PropertyListEncoder {
 public:
  CodingUserInfo userInfo;

  /// The file of a value of any type that can be coded. Throws `EncodingError`.
  template <class T>
  [[nodiscard]] Data encode(const T& value) const {
    return BinaryPropertyListWriter::fileBy(
        &userInfo, [&value](BinaryPropertyListWriter& writer) { encodeValue(writer, value); });
  }
};

}  // namespace ombrix::platform

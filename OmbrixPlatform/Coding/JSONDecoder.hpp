#pragma once

#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"

namespace ombrix::platform {

/// Decodes values from JSON. May be used by several threads at once as long as nobody changes its
/// options.
class JSONDecoder : public JSONCodingOptions {
 public:
  /// A value of any type that can be coded, from a whole document. Throws `DecodingError`.
  template <class T>
  [[nodiscard]] T decode(DataView bytes) const {
    JSONReader reader(bytes, this);
    T value = detail::decodeNew<T>(reader);
    reader.finish();
    return value;
  }
};

}  // namespace ombrix::platform

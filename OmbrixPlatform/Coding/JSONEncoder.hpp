#pragma once

#include "OmbrixPlatform/Coding/Streams/JSONWriter.hpp"

namespace ombrix::platform {

/// Encodes values as JSON, keys in the order written. May be used by several threads at once as
/// long as nobody changes its options.
///
///     const Data json = JSONEncoder().encode(lift);
class JSONEncoder : public JSONCodingOptions {
 public:
  /// The document of a value of any type that can be coded. Throws `EncodingError`.
  template <class T>
  [[nodiscard]] Data encode(const T& value) const {
    JSONWriter writer(this);
    encodeValue(writer, value);
    return writer.finish();
  }
};

}  // namespace ombrix::platform

#pragma once

#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"

namespace ombrix::platform {

/// Decodes values from JSON. May be used by several threads at once as long as nobody changes its
/// options.
///
///     const auto lift = JSONDecoder().decode<Lift>(json);
class JSONDecoder : public JSONCodingOptions {
 public:
  /// A value of any type that can be coded, from a whole document. Throws `DecodingError`.
  template <class T>
  [[nodiscard]] T decode(DataView bytes) const {
    try {
      JSONReader reader(bytes, this);
      T value = detail::decodeNew<T>(reader);
      reader.finish();
      return value;
    } catch (const Error&) {
      // One pass cannot tell whether a later value replaces a wrong one, and stops at a key that
      // comes again. Then the same tokens are read once more, each key once.
    }
    return decodeFrom<T>(*JSONReader(bytes, this).decoder());
  }
};

}  // namespace ombrix::platform

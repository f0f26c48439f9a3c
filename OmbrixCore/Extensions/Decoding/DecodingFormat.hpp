#pragma once

#include <concepts>
#include <memory>

#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"

namespace ombrix {

/// Keeps the decoder that it is decoded from: gives access to a document's top-level decoder.
struct DecoderExtractor {
  std::shared_ptr<platform::Decoder> decoder;

  static DecoderExtractor decode(platform::Decoder& from) { return {from.shared_from_this()}; }
};

/// A top-level decoder for a block of data, of which it owns a copy. Throws the format's own
/// `DecodingError` for data that cannot be read. Any thread, like the format itself.
inline std::shared_ptr<platform::Decoder> decoderFor(const platform::JSONDecoder& format,
                                                     platform::DataView data) {
  return format.decode<DecoderExtractor>(data).decoder;
}
inline std::shared_ptr<platform::Decoder> decoderFor(const platform::PropertyListDecoder& format,
                                                     platform::DataView data) {
  return format.decode<DecoderExtractor>(data).decoder;
}

/// A format that returns the bare decoder of a block of data.
template <class Format>
concept DecodingFormat = requires(const Format& format, platform::DataView data) {
  { decoderFor(format, data) } -> std::same_as<std::shared_ptr<platform::Decoder>>;
};

static_assert(DecodingFormat<platform::JSONDecoder>);
static_assert(DecodingFormat<platform::PropertyListDecoder>);

}  // namespace ombrix

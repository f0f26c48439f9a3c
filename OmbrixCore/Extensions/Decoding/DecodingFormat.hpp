#pragma once

#include <concepts>
#include <memory>

#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"

namespace ombrix {

/// Keeps the decoder it is decoded from: the way to the decoder at the top of a document.
struct DecoderExtractor {
  std::shared_ptr<platform::Decoder> decoder;

  static DecoderExtractor decode(platform::Decoder& from) { return {from.shared_from_this()}; }
};

/// A decoder at the top of a block of data, which it owns a copy of. Throws the format's own
/// `DecodingError` for data that cannot be read. Any thread, as the format itself.
inline std::shared_ptr<platform::Decoder> decoderFor(const platform::JSONDecoder& format,
                                                     platform::DataView data) {
  return format.decode<DecoderExtractor>(data).decoder;
}
inline std::shared_ptr<platform::Decoder> decoderFor(const platform::PropertyListDecoder& format,
                                                     platform::DataView data) {
  return format.decode<DecoderExtractor>(data).decoder;
}

/// A format that gives the bare decoder of a block of data.
template <class Format>
concept DecodingFormat = requires(const Format& format, platform::DataView data) {
  { decoderFor(format, data) } -> std::same_as<std::shared_ptr<platform::Decoder>>;
};

static_assert(DecodingFormat<platform::JSONDecoder>);
static_assert(DecodingFormat<platform::PropertyListDecoder>);

}  // namespace ombrix

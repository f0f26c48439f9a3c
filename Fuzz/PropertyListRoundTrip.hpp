#pragma once

#include <cstdlib>

#include "Fuzz/CodableNode.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"

namespace ombrix::fuzz {

/// Whatever was read must be written and read again as the same bytes; and the ways of decoding a
/// type must agree, about damaged bytes, too.
inline void checkPropertyList(platform::DataView bytes) {
  using Serialization = platform::PropertyListSerialization;
  platform::Data written;
  checkPathsAgree<platform::PropertyListDecoder, platform::PropertyListEncoder,
                  platform::PropertyList>(bytes);
  try {
    written = Serialization::write(Serialization::read(bytes));
  } catch (const platform::PropertyListError&) {
    return;
  }
  if (Serialization::write(Serialization::read(written)) != written) std::abort();
  checkPathsAgree<platform::PropertyListDecoder, platform::PropertyListEncoder,
                  platform::PropertyList>(written);
}

}  // namespace ombrix::fuzz

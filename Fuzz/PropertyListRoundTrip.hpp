#pragma once

#include <cstdlib>

#include "Fuzz/CodableNode.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"

namespace ombrix::fuzz {

/// Whatever was read must be written and read again as the same bytes; and damaged bytes may be
/// decoded as a type without harm.
inline void checkPropertyList(platform::DataView bytes) {
  using Serialization = platform::PropertyListSerialization;
  platform::Data written;
  try {
    static_cast<void>(platform::PropertyListDecoder{}.decode<Node>(bytes));
  } catch (const platform::DecodingError&) {
  }
  try {
    written = Serialization::write(Serialization::read(bytes));
  } catch (const platform::PropertyListError&) {
    return;
  }
  if (Serialization::write(Serialization::read(written)) != written) std::abort();
  checkPathsAgree<platform::PropertyListDecoder, platform::PropertyListEncoder>(written);
}

}  // namespace ombrix::fuzz

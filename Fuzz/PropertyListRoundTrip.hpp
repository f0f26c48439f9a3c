#pragma once

#include <cstdlib>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"

namespace ombrix::fuzz {

/// Whatever was read must be written and read again as the same bytes.
inline void checkPropertyList(platform::DataView bytes) {
  using Serialization = platform::PropertyListSerialization;
  platform::Data written;
  try {
    written = Serialization::write(Serialization::read(bytes));
  } catch (const platform::PropertyListError&) {
    return;
  }
  if (Serialization::write(Serialization::read(written)) != written) std::abort();
}

}  // namespace ombrix::fuzz

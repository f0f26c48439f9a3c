#include <cstdint>

#include "Fuzz/PropertyListRoundTrip.hpp"

// The header is put in front so that no effort goes into guessing it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ombrix::platform::Data file = ombrix::platform::dataFrom("bplist00");
  const auto* first = reinterpret_cast<const std::byte*>(data);
  file.insert(file.end(), first, first + size);
  ombrix::fuzz::checkPropertyList(file);
  return 0;
}

#include <cstdint>

#include "Fuzz/PropertyListRoundTrip.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ombrix::platform::DataView bytes{reinterpret_cast<const std::byte*>(data), size};
  if (!ombrix::platform::textOf(bytes).starts_with("bplist"))
    ombrix::fuzz::checkPropertyList(bytes);
  return 0;
}

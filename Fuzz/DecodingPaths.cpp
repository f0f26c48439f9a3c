#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "Fuzz/CodableNode.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"

// Holds the two ways of decoding JSON equal, for any bytes: repeated keys, damage and numbers
// beyond all doubles included. What a tree of the document says is the third witness.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ombrix::platform::JSON;
  using Decoder = ombrix::platform::JSONDecoder;
  using Encoder = ombrix::platform::JSONEncoder;
  const ombrix::platform::DataView bytes{reinterpret_cast<const std::byte*>(data), size};
  const std::string seen = ombrix::fuzz::checkPathsAgree<Decoder, Encoder, JSON>(bytes);
  std::string expected;
  try {
    const auto unique = JSON::parse(bytes).rawData();  // no key stands twice in it
    expected = ombrix::fuzz::checkPathsAgree<Decoder, Encoder, JSON>(unique);
  } catch (const ombrix::platform::JSONError&) {
    return 0;
  }
  if (seen != expected) std::abort();
  return 0;
}

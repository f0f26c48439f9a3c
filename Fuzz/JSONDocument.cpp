#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "OmbrixPlatform/Coding/JSON.hpp"

namespace {

using ombrix::platform::Data;
using ombrix::platform::JSON;
using ombrix::platform::JSONError;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ombrix::platform::DataView bytes{reinterpret_cast<const std::byte*>(data), size};
  const std::string_view text = ombrix::platform::textOf(bytes);
  Data written;
  try {
    written = JSON::parse(bytes).rawData();
  } catch (const JSONError& error) {
    // The peer knows no limit of depth, takes a byte-order mark, and a NUL for the end.
    const bool known = std::string_view{error.what()}.find("too deep") != std::string_view::npos ||
                       text.starts_with("\xEF\xBB\xBF") ||
                       text.find('\0') != std::string_view::npos;
    if (!known && nlohmann::json::accept(text)) std::abort();
    return 0;
  }
  if (!nlohmann::json::accept(text)) std::abort();
  if (JSON::parse(written).rawData() != written) std::abort();
  return 0;
}

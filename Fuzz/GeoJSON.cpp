#include "OmbrixCore/Location/GeoJSON.hpp"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"

namespace {

using ombrix::GeoJSONGeometry;
using ombrix::platform::Data;
using ombrix::platform::DataView;
using ombrix::platform::JSON;

/// The same decoded through the interface.
struct InterfaceGeometry {
  GeoJSONGeometry geometry;
  static InterfaceGeometry decode(ombrix::platform::Decoder& decoder) {
    return {ombrix::platform::decodeFrom<GeoJSONGeometry>(decoder)};
  }
};

std::optional<Data> recoded(const GeoJSONGeometry& geometry) {
  return ombrix::platform::JSONEncoder().encode(geometry);
}
std::optional<Data> recoded(const InterfaceGeometry& through) { return recoded(through.geometry); }

template <class T>
std::optional<Data> recode(DataView bytes) {
  try {
    return recoded(ombrix::platform::JSONDecoder().decode<T>(bytes));
  } catch (const ombrix::platform::DecodingError&) {
    return std::nullopt;
  }
}

// Where positions may stand, arrays of fewer than two items stop the program on purpose.
bool mayStop(const JSON& value, int depth) {
  if (value.array() == nullptr) return false;
  if (depth == 0) return value.array()->size() < 2;
  for (const JSON& item : *value.array()) {
    if (mayStop(item, depth - 1)) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const DataView bytes{reinterpret_cast<const std::byte*>(data), size};
  JSON document;
  try {
    document = JSON::parse(bytes);
  } catch (const ombrix::platform::JSONError& error) {
    // A number beyond all doubles does no harm where nobody reads it.
    if (std::string_view{error.what()}.find("does not fit") != std::string_view::npos) return 0;
    if (recode<GeoJSONGeometry>(bytes)) std::abort();  // and it never stops the program
    return 0;
  }
  const JSON* type = document.find("type");
  const JSON* coordinates = document.find("coordinates");
  if (type != nullptr && coordinates != nullptr && type->string() != nullptr) {
    const std::string& kind = *type->string();
    const int depth = kind == "Polygon" ? 2 : kind == "LineString" ? 1 : kind == "Point" ? 0 : 3;
    if (depth < 3 && mayStop(*coordinates, depth)) return 0;
  }
  const auto once = recode<GeoJSONGeometry>(bytes);
  if (once != recode<InterfaceGeometry>(bytes)) std::abort();
  // Written anew, no key stands twice.
  if (once != recode<GeoJSONGeometry>(document.rawData())) std::abort();
  if (once && recode<GeoJSONGeometry>(*once) != once) std::abort();
  return 0;
}

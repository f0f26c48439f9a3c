#include "OmbrixC/OmbrixTypes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixCore/Data/Stores/String+FileName.hpp"

namespace ombrix::c {

char* copied(std::string_view text) noexcept {
  return counted(text.empty() ? strdup("") : strndup(text.data(), text.size()));
}

OmbrixData copied(const std::optional<platform::Data>& data) noexcept {
  if (!data) return {nullptr, 0};
  auto* bytes = static_cast<std::uint8_t*>(std::malloc(std::max<std::size_t>(data->size(), 1)));
  if (counted(bytes) == nullptr) return {nullptr, 0};
  if (!data->empty()) std::memcpy(bytes, data->data(), data->size());
  return {bytes, data->size()};
}

}  // namespace ombrix::c

void ombrix_String_release(char* string) { std::free(ombrix::c::uncounted(string)); }

char* ombrix_String_sanitizedFileName(const char* self) {
  using namespace ombrix;
  return c::catching(
      nullptr, [&] { return c::copied(std::string_view(sanitizedFileName(c::textFrom(self)))); });
}

void ombrix_Data_release(OmbrixData data) { std::free(ombrix::c::uncounted(data.bytes)); }

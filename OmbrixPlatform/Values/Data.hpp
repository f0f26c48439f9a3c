#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ombrix::platform {

/// An owned block of bytes. Functions take `std::span<const std::byte>` and return `Data`.
using Data = std::vector<std::byte>;
using DataView = std::span<const std::byte>;

inline DataView bytesOf(std::string_view text) noexcept {
  return std::as_bytes(std::span{text.data(), text.size()});
}

inline Data dataFrom(std::string_view text) {
  const DataView bytes = bytesOf(text);
  return {bytes.begin(), bytes.end()};
}

/// Views the bytes as text, unchecked; valid as long as the bytes are.
inline std::string_view textOf(DataView bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace ombrix::platform

#include "OmbrixPlatform/Values/UUID.hpp"

#include <sys/random.h>

#include <cerrno>

#include "OmbrixPlatform/Values/ASCII.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

constexpr std::size_t kTextSize = 36;

constexpr bool isHyphenAt(std::size_t place) noexcept {
  return place == 8 || place == 13 || place == 18 || place == 23;
}

}  // namespace

UUID UUID::random() {
  std::array<std::uint8_t, 16> bytes{};
  // Requests of up to 256 bytes are never cut short.
  while (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    if (errno != EINTR) fatalError("The system has no source of random numbers.");
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // the variant of RFC 4122
  return UUID(bytes);
}

std::optional<UUID> UUID::parse(std::string_view text) noexcept {
  if (text.size() != kTextSize) return std::nullopt;
  std::array<std::uint8_t, 16> bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kTextSize; ++i) {
    if (isHyphenAt(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = hexValue(text[i]);
    if (value < 0) return std::nullopt;
    auto& byte = bytes[digits++ / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | value);
  }
  return UUID(bytes);
}

std::string UUID::uuidString() const {
  std::string text(kTextSize, '-');
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kTextSize; ++i) {
    if (isHyphenAt(i)) continue;
    const std::uint8_t byte = bytes_[digits / 2];
    text[i] = kHexDigits[digits++ % 2 == 0 ? byte >> 4 : byte & 0x0F];
  }
  return text;
}

}  // namespace ombrix::platform

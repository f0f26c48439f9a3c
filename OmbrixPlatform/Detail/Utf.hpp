#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace ombrix::platform::detail {

/// Whether all bytes are ASCII.
inline bool isAscii(std::string_view text) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  const char* at = text.data();
  std::size_t left = text.size();
  std::uint64_t word = 0;
  for (; left >= 8; at += 8, left -= 8) {
    std::memcpy(&word, at, 8);
    if ((word & kHighBits) != 0) return false;
  }
  word = 0;
  if (left > 0) std::memcpy(&word, at, left);
  return (word & kHighBits) == 0;
}

/// Reads one code point of UTF-8 and advances `at`; false for invalid bytes (overlong forms,
/// surrogates, beyond U+10FFFF, truncated).
bool nextCodePoint(const char*& at, const char* end, char32_t& codePoint) noexcept;

bool isValidUtf8(std::string_view text) noexcept;

/// Appends a code point as UTF-8; it must be at most U+10FFFF and not a surrogate.
void appendUtf8(std::string& out, char32_t codePoint);

/// Appends `units` big-endian UTF-16 units as UTF-8; false at an unpaired surrogate.
bool appendUtf16BigEndian(std::string& out, const std::byte* at, std::size_t units);

/// Appends valid UTF-8 as big-endian UTF-16 and returns the number of units; appends nothing and
/// returns `npos` for invalid text.
std::size_t appendAsUtf16BigEndian(std::string& out, std::string_view text);

}  // namespace ombrix::platform::detail

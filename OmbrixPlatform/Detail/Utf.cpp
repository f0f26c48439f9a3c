#include "OmbrixPlatform/Detail/Utf.hpp"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <array>
#include <bit>

namespace ombrix::platform::detail {
namespace {

void appendUnit(std::string& out, char32_t unit) {
  out.push_back(static_cast<char>(unit >> 8));
  out.push_back(static_cast<char>(unit & 0xFF));
}

bool isAsciiByte(char c) noexcept { return static_cast<unsigned char>(c) < 0x80; }

const char* behindAscii(const char* at, const char* end) noexcept {
  for (std::uint64_t word = 0; end - at >= 8; at += 8) {
    std::memcpy(&word, at, 8);
    word &= 0x8080808080808080U;
    if (word == 0) continue;
    if constexpr (std::endian::native == std::endian::little) at += std::countr_zero(word) / 8;
    break;
  }
  while (at != end && isAsciiByte(*at)) ++at;
  return at;
}

// The length of the non-ASCII code point that begins here; zero for invalid bytes. By hand, for it
// is measured: ICU decodes what need only be checked.
inline std::ptrdiff_t lengthOfSequence(const char* at, std::ptrdiff_t left) noexcept {
  const auto byte = [at](int i) { return static_cast<unsigned char>(at[i]); };
  const auto follows = [&](int i) { return (byte(i) & 0xC0U) == 0x80U; };
  const unsigned lead = byte(0);
  if (lead < 0xC2) return 0;  // continuation bytes and overlong forms
  if (lead < 0xE0) return left >= 2 && follows(1) ? 2 : 0;
  if (lead < 0xF0) {
    if (left < 3 || !follows(1) || !follows(2)) return 0;
    const bool isOverlong = lead == 0xE0 && byte(1) < 0xA0;
    const bool meansSurrogate = lead == 0xED && byte(1) >= 0xA0;
    return isOverlong || meansSurrogate ? 0 : 3;
  }
  if (lead > 0xF4 || left < 4 || !follows(1) || !follows(2) || !follows(3)) return 0;
  const bool isOverlong = lead == 0xF0 && byte(1) < 0x90;
  const bool isBeyondAll = lead == 0xF4 && byte(1) >= 0x90;
  return isOverlong || isBeyondAll ? 0 : 4;
}

// Whether two code points of three bytes each begin here, as in Japanese texts. Also false for the
// few lead bytes that restrict their second byte, and when fewer than eight bytes are left.
inline bool startsWithTwoOfThreeBytes(const char* at, std::ptrdiff_t left) noexcept {
  if (std::endian::native != std::endian::little || left < 8) return false;
  std::uint64_t word = 0;
  std::memcpy(&word, at, 8);
  const auto isFree = [](std::uint64_t lead) { return (lead & 0xF) != 0 && (lead & 0xF) != 0xD; };
  return (word & 0xC0C0F0C0C0F0U) == 0x8080E08080E0U && isFree(word) && isFree(word >> 24);
}

}  // namespace

bool nextCodePoint(const char*& at, const char* end, char32_t& codePoint) noexcept {
  const auto lead = static_cast<unsigned char>(*at);
  if (lead < 0x80) {
    codePoint = lead;
    ++at;
    return true;
  }
  const std::ptrdiff_t length = lengthOfSequence(at, end - at);
  if (length == 0) return false;
  codePoint = lead & (0x7FU >> length);
  for (std::ptrdiff_t i = 1; i < length; ++i) {
    codePoint = codePoint << 6 | (static_cast<unsigned char>(at[i]) & 0x3FU);
  }
  at += length;
  return true;
}

bool isValidUtf8(std::string_view text) noexcept {
  const char* at = text.data();
  const char* end = at + text.size();
  while ((at = behindAscii(at, end)) != end) {
    while (at != end && !isAsciiByte(*at)) {
      if (startsWithTwoOfThreeBytes(at, end - at)) {
        at += 6;
        continue;
      }
      const std::ptrdiff_t length = lengthOfSequence(at, end - at);
      if (length == 0) return false;
      at += length;
    }
  }
  return true;
}

void appendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) return out.push_back(static_cast<char>(c));
  std::array<std::uint8_t, U8_MAX_LENGTH> bytes{};
  std::size_t length = 0;
  U8_APPEND_UNSAFE(bytes, length, c);
  out.append(reinterpret_cast<const char*>(bytes.data()), length);
}

bool appendUtf16BigEndian(std::string& out, const std::byte* at, std::size_t units) {
  const auto unitAt = [&](std::size_t i) {
    return static_cast<char32_t>(std::to_integer<unsigned>(at[2 * i]) << 8 |
                                 std::to_integer<unsigned>(at[2 * i + 1]));
  };
  for (std::size_t i = 0; i < units; ++i) {
    char32_t unit = unitAt(i);
    if (U16_IS_SURROGATE(unit)) {
      if (!U16_IS_SURROGATE_LEAD(unit) || i + 1 == units) return false;
      const char32_t trail = unitAt(++i);
      if (!U16_IS_TRAIL(trail)) return false;
      unit = static_cast<char32_t>(U16_GET_SUPPLEMENTARY(unit, trail));
    }
    appendUtf8(out, unit);
  }
  return true;
}

std::size_t appendAsUtf16BigEndian(std::string& out, std::string_view text) {
  const std::size_t start = out.size();
  const char* at = text.data();
  const char* end = at + text.size();
  char32_t c = 0;
  while (at != end) {
    if (!nextCodePoint(at, end, c)) {
      out.resize(start);
      return std::string::npos;
    }
    if (c < 0x10000) {
      appendUnit(out, c);
    } else {
      appendUnit(out, U16_LEAD(c));
      appendUnit(out, U16_TRAIL(c));
    }
  }
  return (out.size() - start) / 2;
}

}  // namespace ombrix::platform::detail

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr bool isSurrogate(char32_t c) noexcept { return c >= 0xD800 && c <= 0xDFFF; }

void appendUnit(std::string& out, char32_t unit) {
  out.push_back(static_cast<char>(unit >> 8));
  out.push_back(static_cast<char>(unit & 0xFF));
}

}  // namespace

bool nextCodePoint(const char*& at, const char* end, char32_t& codePoint) noexcept {
  const auto lead = static_cast<unsigned char>(*at);
  if (lead < 0x80) {
    codePoint = lead;
    ++at;
    return true;
  }
  std::ptrdiff_t length = 0;
  char32_t value = 0;
  char32_t least = 0;
  if ((lead & 0xE0) == 0xC0) {
    length = 2, value = lead & 0x1FU, least = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, value = lead & 0x0FU, least = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4, value = lead & 0x07U, least = 0x10000;
  } else {
    return false;
  }
  if (end - at < length) return false;
  for (std::ptrdiff_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(at[i]);
    if ((next & 0xC0) != 0x80) return false;
    value = value << 6 | (next & 0x3FU);
  }
  if (value < least || value > 0x10FFFF || isSurrogate(value)) return false;
  codePoint = value;
  at += length;
  return true;
}

bool isValidUtf8(std::string_view text) noexcept {
  if (isAscii(text)) return true;
  const char* at = text.data();
  const char* end = at + text.size();
  char32_t codePoint = 0;
  while (at != end) {
    if (!nextCodePoint(at, end, codePoint)) return false;
  }
  return true;
}

void appendUtf8(std::string& out, char32_t c) {
  const auto tail = [&](unsigned shift) {
    out.push_back(static_cast<char>(0x80U | (c >> shift & 0x3FU)));
  };
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0U | c >> 6));
    tail(0);
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0U | c >> 12));
    tail(6), tail(0);
  } else {
    out.push_back(static_cast<char>(0xF0U | c >> 18));
    tail(12), tail(6), tail(0);
  }
}

bool appendUtf16BigEndian(std::string& out, const std::byte* at, std::size_t units) {
  const auto unitAt = [&](std::size_t i) {
    return static_cast<char32_t>(std::to_integer<unsigned>(at[2 * i]) << 8 |
                                 std::to_integer<unsigned>(at[2 * i + 1]));
  };
  for (std::size_t i = 0; i < units; ++i) {
    char32_t unit = unitAt(i);
    if (isSurrogate(unit)) {
      if (unit >= 0xDC00 || i + 1 == units) return false;
      const char32_t low = unitAt(++i);
      if (low < 0xDC00 || low > 0xDFFF) return false;
      unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
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
      appendUnit(out, 0xD800 + ((c - 0x10000) >> 10));
      appendUnit(out, 0xDC00 + ((c - 0x10000) & 0x3FF));
    }
  }
  return (out.size() - start) / 2;
}

}  // namespace ombrix::platform::detail

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ombrix::platform {

/// Converts UTF-8 to UTF-16; invalid bytes become U+FFFD. Any thread.
std::u16string utf16From(std::string_view utf8);

/// Converts UTF-16 to UTF-8; a lone surrogate becomes U+FFFD. Any thread.
std::string utf8From(std::u16string_view utf16);

/// Returns the code point at an index inside the text and moves the index past it; a lone surrogate
/// is returned as it is.
constexpr char32_t nextCodePoint(std::u16string_view text, std::size_t& index) noexcept {
  const char16_t unit = text[index++];
  if (unit < 0xD800 || unit > 0xDBFF || index == text.size()) return unit;
  const char16_t trail = text[index];
  if (trail < 0xDC00 || trail > 0xDFFF) return unit;
  ++index;
  return 0x10000U + ((static_cast<char32_t>(unit) - 0xD800U) << 10U) + (trail - 0xDC00U);
}

}  // namespace ombrix::platform

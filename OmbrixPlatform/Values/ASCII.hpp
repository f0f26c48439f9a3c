#pragma once

#include <algorithm>
#include <string>
#include <string_view>

// ASCII characters, whatever the locale; other bytes stay as they are. Any thread.

namespace ombrix::platform {

inline constexpr std::string_view kBlanks = " \t";
inline constexpr std::string_view kWhiteSpace = " \t\r\n";
inline constexpr std::string_view kHexDigits = "0123456789ABCDEF";

/// The text without these characters at its ends.
constexpr std::string_view trimmed(std::string_view text, std::string_view characters) noexcept {
  const auto first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

/// The value of a hexadecimal digit, -1 for another character.
constexpr int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

constexpr char asciiLowercased(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

inline std::string asciiLowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = asciiLowercased(c);
  return result;
}

constexpr bool equalIgnoringASCIICase(std::string_view a, std::string_view b) noexcept {
  const auto areEqual = [](char x, char y) { return asciiLowercased(x) == asciiLowercased(y); };
  return a.size() == b.size() && std::ranges::equal(a, b, areEqual);
}

}  // namespace ombrix::platform

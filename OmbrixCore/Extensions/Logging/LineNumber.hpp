#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>

namespace ombrix {

/// Appends the number of a source line in ASCII digits, whatever the locale.
inline void appendLineNumber(std::string& text, std::uint32_t number) {
  char digits[std::numeric_limits<std::uint32_t>::digits10 + 1];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  text.append(digits, end);
}

}  // namespace ombrix

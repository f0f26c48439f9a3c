#pragma once

#include <array>
#include <bit>
#include <cstdint>

#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"

namespace ombrix::platform::detail {

/// Whether a byte must be escaped in a JSON text.
inline constexpr std::array<bool, 256> kNotPlain = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0; c < table.size(); ++c) table[c] = c < 0x20 || c == '"' || c == '\\';
  return table;
}();

/// Set in bytes that are not ASCII.
inline constexpr std::uint64_t kNoAscii = 0x8080808080808080U;

/// The high bit of each of eight bytes that must be escaped in a JSON text; in bytes above the
/// lowest such one the bit may be set, too.
inline std::uint64_t notPlain(std::uint64_t word) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  const std::uint64_t quotes = word ^ kOnes * '"';
  const std::uint64_t backslashes = word ^ kOnes * '\\';
  return ((word - kOnes * 0x20) | (quotes - kOnes) | (backslashes - kOnes)) & ~word & kNoAscii;
}

/// The place of the first byte that must be escaped in a JSON text; the end when there is none.
/// @param mayLeaveAscii set when bytes on the way, or up to seven after them, are not ASCII
inline const char* behindPlainText(const char* at, const char* end, bool& mayLeaveAscii) noexcept {
  std::uint64_t seen = 0;
  if constexpr (kWordsAreLittleEndian) {
    for (; end - at >= 8; at += 8) {
      const std::uint64_t word = loadEightBytes(at);
      seen |= word;
      const std::uint64_t others = notPlain(word);
      if (others == 0) continue;
      if ((seen & kNoAscii) != 0) mayLeaveAscii = true;
      return at + std::countr_zero(others) / 8;
    }
  }
  for (; at != end && !kNotPlain[static_cast<unsigned char>(*at)]; ++at) {
    seen |= static_cast<unsigned char>(*at);
  }
  if ((seen & kNoAscii) != 0) mayLeaveAscii = true;
  return at;
}

}  // namespace ombrix::platform::detail

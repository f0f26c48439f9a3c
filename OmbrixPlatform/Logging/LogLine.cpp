#include <fmt/format.h>

#include <cstdint>
#include <cstring>
#include <string_view>

#include "OmbrixPlatform/Detail/Utf.hpp"
#include "OmbrixPlatform/Logging/Detail/LogLine.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::string_view kReplacement = "\uFFFD";
constexpr std::size_t kKeptTailBytes = 512;
constexpr std::size_t kMarkBytes = 64;  // the longest mark of a cut

/// Skips bytes that are written unchanged: ASCII without control characters.
const char* skipPlain(const char* at, const char* end) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  constexpr std::uint64_t kHighBits = 0x80 * kOnes;
  while (end - at >= 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    const std::uint64_t isControl = (word - 0x20 * kOnes) & ~word;
    const std::uint64_t isDeleteOrHigher = word | (word + kOnes);
    if (((isControl | isDeleteOrHigher) & kHighBits) != 0) break;
    at += sizeof word;
  }
  while (at != end && *at >= 0x20 && *at < 0x7F) ++at;
  return at;
}

constexpr bool isReadable(char32_t c) noexcept {
  if (c < 0x20) return c == '\t';
  return (c < 0x7F || c > 0x9F) && c != 0x2028 && c != 0x2029;
}

/// Skips what may stay; returns the first invalid byte or unreadable character, or the end.
const char* skipReadable(const char* at, const char* end) noexcept {
  while ((at = skipPlain(at, end)) != end) {
    const char* next = at;
    char32_t c = 0;
    if (!nextCodePoint(next, end, c) || !isReadable(c)) return at;
    at = next;
  }
  return end;
}

std::string readable(std::string_view text) {
  std::string result;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (true) {
    const char* const stop = skipReadable(at, end);
    result.append(at, stop);
    at = stop;
    if (at == end) return result;
    char32_t c = 0;
    if (!nextCodePoint(at, end, c)) {
      result += kReplacement;
      ++at;
    } else if (c == '\n' || c == '\r') {
      result += c == '\n' ? "\\n" : "\\r";
    } else {
      const auto code = static_cast<std::uint32_t>(c);
      result += c < 0x100 ? fmt::format("\\x{:02X}", code) : fmt::format("\\u{{{:X}}}", code);
    }
  }
}

/// The last boundary of a character in valid UTF-8 at or before a place.
std::size_t cutBefore(std::string_view text, std::size_t place) noexcept {
  while (place > 0 && (static_cast<unsigned char>(text[place]) & 0xC0) == 0x80) --place;
  return place;
}

std::string shortened(std::string_view raw) {
  constexpr std::size_t kMaximum = kMaximumLogLineBytes - 1;
  constexpr std::size_t kKeptHeadBytes = kMaximum - kMarkBytes - kKeptTailBytes;
  // Escaping a text never shortens it.
  std::string head = readable(raw.substr(0, kMaximum));
  if (raw.size() <= kMaximum && head.size() <= kMaximum) return head;
  const std::string tail = readable(raw.substr(raw.size() - kKeptTailBytes));
  head.resize(cutBefore(head, kKeptHeadBytes));
  head += fmt::format("… [cut; the whole has {} bytes] …", raw.size());
  head.append(tail, cutBefore(tail, tail.size() - kKeptTailBytes));
  return head;
}

}  // namespace

void finishLogLine(std::string& lines, std::size_t start) {
  const char* const begin = lines.data() + start;
  const char* const end = lines.data() + lines.size();
  const bool isFine =
      lines.size() - start < kMaximumLogLineBytes && skipReadable(begin, end) == end;
  if (!isFine) {
    const std::string line = shortened(std::string_view(lines).substr(start));
    lines.replace(start, std::string::npos, line);
  }
  lines += '\n';
}

}  // namespace ombrix::platform::detail

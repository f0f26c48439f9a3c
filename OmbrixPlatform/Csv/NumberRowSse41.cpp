#include <algorithm>
#include <cstddef>

#include "OmbrixPlatform/Csv/Detail/DecimalToDouble.hpp"
#include "OmbrixPlatform/Csv/Detail/NumberRow.hpp"

#if defined(__x86_64__) && defined(__GNUC__)

#include <smmintrin.h>

#define OMBRIX_SSE41 __attribute__((target("sse4.1")))

namespace ombrix::platform::detail {
namespace {

/// Fields that are looked at through one window of 64 bytes.
constexpr std::size_t kFieldsInWindow = 4;
constexpr std::ptrdiff_t kWindowBytes = 64;

/// Bytes in front of a row that its first number may load.
constexpr std::ptrdiff_t kBytesBefore = 32;

/// Sixteen bytes off, then sixteen on: loaded at n, the last n bytes are on.
alignas(32) constexpr unsigned char kLastBytes[32] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

OMBRIX_SSE41 inline __m128i load(const void* bytes) noexcept {
  return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

/// One bit for each byte of a window: the points, and the delimiters and control characters.
struct Marks {
  std::uint64_t points, ends;
};

OMBRIX_SSE41 inline Marks marksAt(const char* text, char delimiter) noexcept {
  const __m128i point = _mm_set1_epi8('.');
  const __m128i separator = _mm_set1_epi8(delimiter);
  const __m128i lastControl = _mm_set1_epi8('\r');
  Marks marks{};
  for (int part = 0; part < 4; ++part) {
    const __m128i bytes = load(text + 16 * part);
    const __m128i isPoint = _mm_cmpeq_epi8(bytes, point);
    const __m128i isControl = _mm_cmpeq_epi8(_mm_min_epu8(bytes, lastControl), bytes);
    const __m128i isEnd = _mm_or_si128(_mm_cmpeq_epi8(bytes, separator), isControl);
    marks.points |= static_cast<std::uint64_t>(_mm_movemask_epi8(isPoint)) << (16 * part);
    marks.ends |= static_cast<std::uint64_t>(_mm_movemask_epi8(isEnd)) << (16 * part);
  }
  return marks;
}

/// The number that the last `count` (1 to 16) digits before `end` spell, jumping over the point in
/// front of the last `fractionCount`. Bytes of `bad` become non-zero where there is no digit.
OMBRIX_SSE41 inline std::uint64_t digitsBefore(const char* end, std::ptrdiff_t count,
                                               std::ptrdiff_t fractionCount,
                                               __m128i& bad) noexcept {
  const __m128i fraction = load(end - 16);
  const __m128i whole = load(end - 17);
  const __m128i text = _mm_blendv_epi8(whole, fraction, load(kLastBytes + fractionCount));
  const __m128i digits =
      _mm_and_si128(_mm_sub_epi8(text, _mm_set1_epi8('0')), load(kLastBytes + count));
  bad = _mm_or_si128(bad, _mm_subs_epu8(digits, _mm_set1_epi8(9)));
  const __m128i pairs = _mm_maddubs_epi16(digits, _mm_set1_epi16(1 << 8 | 10));
  const __m128i fours = _mm_madd_epi16(pairs, _mm_set1_epi32(1 << 16 | 100));
  const __m128i packed = _mm_packus_epi32(fours, fours);
  const __m128i eights = _mm_madd_epi16(packed, _mm_set1_epi32(1 << 16 | 10'000));
  const auto both = static_cast<std::uint64_t>(_mm_cvtsi128_si64(eights));
  return (both & 0xFFFF'FFFF) * 100'000'000 + (both >> 32);
}

}  // namespace

OMBRIX_SSE41 const char* scanNumberRowSse41(const NumberRowText& text,
                                            std::span<double> numbers) noexcept {
  const char* position = text.begin;
  if (position - text.readableBegin < kBytesBefore) return scanNumberRowPortable(text, numbers);
  __m128i bad = _mm_setzero_si128();
  for (std::size_t first = 0; first < numbers.size(); first += kFieldsInWindow) {
    if (text.readableEnd - position < kWindowBytes) return scanNumberRowPortable(text, numbers);
    const char* const window = position;
    auto [points, ends] = marksAt(window, text.delimiter);
    const std::size_t behind = std::min(first + kFieldsInWindow, numbers.size());
    for (std::size_t i = first; i < behind; ++i) {
      if (points == 0 || ends == 0) return scanNumberRowPortable(text, numbers);
      const char* const point = window + std::countr_zero(points);
      const char* const end = window + std::countr_zero(ends);
      points &= points - 1;
      ends &= ends - 1;
      const bool negative = *position == '-';
      const std::ptrdiff_t wholeCount = point - position - negative;
      const std::ptrdiff_t fractionCount = end - point - 1;
      const std::ptrdiff_t count = wholeCount + fractionCount;
      if (wholeCount < 1 || fractionCount < 1 || fractionCount > 16 || count > 19) {
        return scanNumberRowPortable(text, numbers);
      }
      std::uint64_t digits =
          digitsBefore(end, std::min<std::ptrdiff_t>(count, 16), fractionCount, bad);
      if (count > 16) {
        const auto leading = static_cast<unsigned>(count - 16);
        const std::uint64_t word = loadEightBytes(position + negative);
        if (leading > wholeCount || leadingDigitCount(word) < leading) {
          return scanNumberRowPortable(text, numbers);
        }
        digits += digitsValue(word, leading) * kIntegerPowersOf10[16];
      }
      const double magnitude = decimalToDouble(digits, -static_cast<int>(fractionCount));
      numbers[i] = negative ? -magnitude : magnitude;
      position = end + 1;
      if (i + 1 < numbers.size() && *end != text.delimiter) {
        return scanNumberRowPortable(text, numbers);
      }
    }
  }
  const char last = position[-1];
  if (last == '\r' && position < text.end) {
    position += *position == '\n';
  } else if (last != '\n' && last != '\r') {
    return scanNumberRowPortable(text, numbers);
  }
  if (_mm_testz_si128(bad, bad) == 0 || position > text.end) {
    return scanNumberRowPortable(text, numbers);
  }
  return position;
}

NumberRowScanner fastestNumberRowScanner() noexcept {
  return __builtin_cpu_supports("sse4.1") ? &scanNumberRowSse41 : &scanNumberRowPortable;
}

}  // namespace ombrix::platform::detail

#else

namespace ombrix::platform::detail {

const char* scanNumberRowSse41(const NumberRowText& text, std::span<double> numbers) noexcept {
  return scanNumberRowPortable(text, numbers);
}

NumberRowScanner fastestNumberRowScanner() noexcept { return &scanNumberRowPortable; }

}  // namespace ombrix::platform::detail

#endif

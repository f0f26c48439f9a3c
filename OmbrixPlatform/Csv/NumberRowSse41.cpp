#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>

#include "OmbrixPlatform/Csv/Detail/NumberRow.hpp"
#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"

#if defined(__x86_64__) && defined(__GNUC__)

#include <smmintrin.h>

#define OMBRIX_SSE41 __attribute__((target("sse4.1")))

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kMostNumbers = 16;

/// The first scan for marks covers this many bytes, enough for most rows; a word holds the marks of
/// 64. After a fixed number of fields, so that the branch is predictable, the word is shifted to
/// cover the rest; longer rows load further words.
constexpr std::ptrdiff_t kWindowBytes = 80;
constexpr std::size_t kFieldsInFirstWord = 4;

/// Bytes before a row that its first number may load.
constexpr std::ptrdiff_t kBytesBefore = 32;

/// The digits before the last 16 are added in a second word.
constexpr std::ptrdiff_t kDigitsInVector = 16;

/// Sixteen bytes off, then sixteen on: loading at n sets the last n bytes.
alignas(32) constexpr unsigned char kLastBytes[32] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

OMBRIX_SSE41 inline __m128i load(const void* bytes) noexcept {
  return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

/// One bit for each of 16 bytes: points, delimiters and control characters.
OMBRIX_SSE41 inline std::uint64_t marksAt(const char* text, __m128i delimiter) noexcept {
  const __m128i bytes = load(text);
  const __m128i isPoint = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('.'));
  const __m128i isControl = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8('\r')), bytes);
  const __m128i isEnd = _mm_or_si128(_mm_cmpeq_epi8(bytes, delimiter), isControl);
  return static_cast<std::uint64_t>(_mm_movemask_epi8(_mm_or_si128(isPoint, isEnd)));
}

OMBRIX_SSE41 inline std::uint64_t marksInWord(const char* text, __m128i delimiter) noexcept {
  return marksAt(text, delimiter) | marksAt(text + 16, delimiter) << 16 |
         marksAt(text + 32, delimiter) << 32 | marksAt(text + 48, delimiter) << 48;
}

/// Removes the next mark and returns its place; 63 when none is left.
inline std::ptrdiff_t nextMark(std::uint64_t& marks) noexcept {
  const auto place = std::countr_zero(marks | std::uint64_t{1} << 63);
  marks &= marks - 1;
  return place;
}

/// The last `count` (1 to 16) digits before `end`, skipping the point before the last
/// `fractionCount`, as four numbers of four digits. Bytes of `bad` become non-zero where the text
/// has no digit.
OMBRIX_SSE41 inline __m128i digitsBefore(const char* end, std::ptrdiff_t count,
                                         std::ptrdiff_t fractionCount, __m128i& bad) noexcept {
  const __m128i fraction = load(end - 16);
  const __m128i whole = load(end - 17);
  const __m128i text = _mm_blendv_epi8(whole, fraction, load(kLastBytes + fractionCount));
  const __m128i digits =
      _mm_and_si128(_mm_sub_epi8(text, _mm_set1_epi8('0')), load(kLastBytes + count));
  bad = _mm_or_si128(bad, _mm_subs_epu8(digits, _mm_set1_epi8(9)));
  const __m128i pairs = _mm_maddubs_epi16(digits, _mm_set1_epi16(1 << 8 | 10));
  return _mm_madd_epi16(pairs, _mm_set1_epi32(1 << 16 | 100));
}

/// The numbers of a row during the scan; two are processed in each step.
struct Row {
  __m128i fours[kMostNumbers + 1];
  alignas(16) std::array<std::uint64_t, kMostNumbers + 1> digits;
  alignas(16) std::array<double, kMostNumbers + 1> scales;
  alignas(16) std::array<std::uint64_t, kMostNumbers + 1> signs;
  std::array<std::uint64_t, kMostNumbers> leading;  ///< Digits before the last 16.
  std::array<int, kMostNumbers> fractionCounts;
  bool hasLeading = false;
};

/// Joins the digits of each number; false when one needs more than 52 bits.
OMBRIX_SSE41 inline bool joinDigits(Row& row, std::size_t count) noexcept {
  __m128i beyond = _mm_setzero_si128();
  for (std::size_t i = 0; i < count; i += 2) {
    const __m128i packed = _mm_packus_epi32(row.fours[i], row.fours[i + 1]);
    const __m128i eights = _mm_madd_epi16(packed, _mm_set1_epi32(1 << 16 | 10'000));
    const __m128i digits = _mm_add_epi64(_mm_mul_epu32(eights, _mm_set1_epi64x(100'000'000)),
                                         _mm_srli_epi64(eights, 32));
    beyond = _mm_or_si128(beyond, _mm_srli_epi64(digits, 52));
    _mm_store_si128(reinterpret_cast<__m128i*>(&row.digits[i]), digits);
  }
  return _mm_testz_si128(beyond, beyond) != 0;
}

template <std::size_t Extent>
OMBRIX_SSE41 inline void convert(Row& row, std::span<double, Extent> numbers,
                                 bool fitsDoubles) noexcept {
  const std::size_t count = numbers.size();
  if (!fitsDoubles || row.hasLeading) [[unlikely]] {
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t digits = row.leading[i] * kIntegerPowersOf10[16] + row.digits[i];
      const double magnitude = decimalToDouble(digits, -row.fractionCounts[i]);
      numbers[i] = row.signs[i] != 0 ? -magnitude : magnitude;
    }
    return;
  }
  const auto two = [&row](std::size_t i) __attribute__((target("sse4.1"))) {
    // Below 2^52, an integer put into the fraction of 2^52 adds exactly itself.
    const __m128d base = _mm_set1_pd(0x1p52);
    const __m128i digits = _mm_load_si128(reinterpret_cast<const __m128i*>(&row.digits[i]));
    const __m128d exact =
        _mm_sub_pd(_mm_castsi128_pd(_mm_or_si128(digits, _mm_castpd_si128(base))), base);
    const __m128i signs = _mm_load_si128(reinterpret_cast<const __m128i*>(&row.signs[i]));
    return _mm_xor_pd(_mm_div_pd(exact, _mm_load_pd(&row.scales[i])), _mm_castsi128_pd(signs));
  };
  std::size_t i = 0;
  for (; i + 2 <= count; i += 2) _mm_storeu_pd(&numbers[i], two(i));
  if (i < count) numbers[i] = _mm_cvtsd_f64(two(i));
}

/// The same body for every count of numbers; a count known at compile time unrolls it.
template <std::size_t Extent>
OMBRIX_SSE41 const char* scanRow(const NumberRowText& text,
                                 std::span<double, Extent> numbers) noexcept {
  const std::size_t count = numbers.size();
  const char* position = text.begin;
  if (position - text.readableBegin < kBytesBefore || text.readableEnd - position < kWindowBytes ||
      count > kMostNumbers) {
    return scanNumberRowPortable(text, numbers);
  }
  // Not _mm_set1_epi8: g++ would pass the byte through memory and wait for it.
  const __m128i delimiter = _mm_shuffle_epi8(
      _mm_cvtsi32_si128(static_cast<unsigned char>(text.delimiter)), _mm_setzero_si128());
  const char* window = position;
  const std::uint64_t firstMarks = marksInWord(window, delimiter);
  std::uint64_t marks = firstMarks;
  const std::uint64_t marksBehind = marksAt(window + 64, delimiter);
  __m128i bad = _mm_setzero_si128();
  Row row;
  for (std::size_t i = 0; i < count; ++i) {
    if (i == kFieldsInFirstWord && position - window < 64) {
      const std::ptrdiff_t shift = position - window;
      marks = firstMarks >> shift | marksBehind << (64 - shift);
      window = position;
    }
    if ((marks & (marks - 1)) == 0) [[unlikely]] {
      if (text.readableEnd - position < kWindowBytes) return scanNumberRowPortable(text, numbers);
      marks = marksInWord(position, delimiter);
      window = position;
    }
    const char* const point = window + nextMark(marks);
    const char* const end = window + nextMark(marks);
    const bool negative = *position == '-';
    const std::ptrdiff_t wholeCount = point - position - negative;
    const std::ptrdiff_t fractionCount = end - point - 1;
    const std::ptrdiff_t digitCount = wholeCount + fractionCount;
    if (*point != '.' || wholeCount < 1 || fractionCount < 1 || fractionCount > kDigitsInVector ||
        (i + 1 < count && *end != text.delimiter)) {
      return scanNumberRowPortable(text, numbers);
    }
    row.leading[i] = 0;
    if (digitCount > kDigitsInVector) {
      const auto extra = static_cast<unsigned>(digitCount - kDigitsInVector);
      const std::uint64_t word = loadEightBytes(position + negative);
      if (extra > 3 || extra > wholeCount || leadingDigitCount(word) < extra) {
        return scanNumberRowPortable(text, numbers);
      }
      row.leading[i] = digitsValue(word, extra);
      row.hasLeading = true;
    }
    row.fours[i] = digitsBefore(end, std::min(digitCount, kDigitsInVector), fractionCount, bad);
    row.scales[i] = kExactPowersOf10[static_cast<std::size_t>(fractionCount)];
    row.signs[i] = static_cast<std::uint64_t>(negative) << 63;
    row.fractionCounts[i] = static_cast<int>(fractionCount);
    position = end + 1;
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
  row.fours[count] = _mm_setzero_si128();
  const bool fitsDoubles = joinDigits(row, count);
  convert(row, numbers, fitsDoubles);
  return position;
}

}  // namespace

OMBRIX_SSE41 const char* scanNumberRowSse41(const NumberRowText& text,
                                            std::span<double> numbers) noexcept {
  switch (numbers.size()) {
    case 2:
      return scanRow(text, numbers.first<2>());
    case 8:
      return scanRow(text, numbers.first<8>());
    default:
      return scanRow(text, numbers);
  }
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

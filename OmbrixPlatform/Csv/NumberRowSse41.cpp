#if defined(__x86_64__) && defined(__GNUC__)

#define OMBRIX_WIDE __attribute__((target("sse4.1")))

#include <smmintrin.h>

#include "OmbrixPlatform/Csv/Detail/NumberRowWide.hpp"

namespace ombrix::platform::detail {
namespace {

struct Sse41 {
  using Bytes = __m128i;
  using Fours = __m128i;
  using Doubles = __m128d;

  OMBRIX_WIDE static Bytes load(const void* bytes) noexcept {
    return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
  }

  // Not _mm_set1_epi8: g++ would pass the byte through memory and wait for it.
  OMBRIX_WIDE static Bytes every(char byte) noexcept {
    return _mm_shuffle_epi8(_mm_cvtsi32_si128(static_cast<unsigned char>(byte)),
                            _mm_setzero_si128());
  }

  OMBRIX_WIDE static bool isNone(Bytes bytes) noexcept {
    return _mm_testz_si128(bytes, bytes) != 0;
  }

  OMBRIX_WIDE static std::uint64_t marksAt(const char* text, Bytes delimiter) noexcept {
    const Bytes bytes = load(text);
    const Bytes isPoint = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('.'));
    const Bytes isControl = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8('\r')), bytes);
    const Bytes isEnd = _mm_or_si128(_mm_cmpeq_epi8(bytes, delimiter), isControl);
    return static_cast<std::uint64_t>(_mm_movemask_epi8(_mm_or_si128(isPoint, isEnd)));
  }

  OMBRIX_WIDE static std::uint64_t marksInWord(const char* text, Bytes delimiter) noexcept {
    return marksAt(text, delimiter) | marksAt(text + 16, delimiter) << 16 |
           marksAt(text + 32, delimiter) << 32 | marksAt(text + 48, delimiter) << 48;
  }

  OMBRIX_WIDE static Fours digitsBefore(const char* end, std::ptrdiff_t count,
                                        std::ptrdiff_t fractionCount, Bytes& bad) noexcept {
    const Bytes fraction = load(end - 16);
    const Bytes whole = load(end - 17);
    const Bytes text = _mm_blendv_epi8(whole, fraction, load(kLastBytes + fractionCount));
    const Bytes digits =
        _mm_and_si128(_mm_sub_epi8(text, _mm_set1_epi8('0')), load(kLastBytes + count));
    bad = _mm_or_si128(bad, _mm_subs_epu8(digits, _mm_set1_epi8(9)));
    const __m128i pairs = _mm_maddubs_epi16(digits, _mm_set1_epi16(1 << 8 | 10));
    return _mm_madd_epi16(pairs, _mm_set1_epi32(1 << 16 | 100));
  }

  OMBRIX_WIDE static bool join(Fours one, Fours two, std::uint64_t* digits) noexcept {
    const __m128i packed = _mm_packus_epi32(one, two);
    const __m128i eights = _mm_madd_epi16(packed, _mm_set1_epi32(1 << 16 | 10'000));
    const __m128i both = _mm_add_epi64(_mm_mul_epu32(eights, _mm_set1_epi64x(100'000'000)),
                                       _mm_srli_epi64(eights, 32));
    _mm_store_si128(reinterpret_cast<__m128i*>(digits), both);
    return isNone(_mm_srli_epi64(both, 52));
  }

  OMBRIX_WIDE static Doubles quotients(const std::uint64_t* digits, const double* scales,
                                       const std::uint64_t* signs) noexcept {
    // Below 2^52, an integer put into the fraction of 2^52 adds exactly itself.
    const __m128d base = _mm_set1_pd(0x1p52);
    const __m128i both = _mm_load_si128(reinterpret_cast<const __m128i*>(digits));
    const __m128d exact =
        _mm_sub_pd(_mm_castsi128_pd(_mm_or_si128(both, _mm_castpd_si128(base))), base);
    const __m128i minus = _mm_load_si128(reinterpret_cast<const __m128i*>(signs));
    return _mm_xor_pd(_mm_div_pd(exact, _mm_load_pd(scales)), _mm_castsi128_pd(minus));
  }

  OMBRIX_WIDE static void store(Doubles doubles, double* to) noexcept {
    _mm_storeu_pd(to, doubles);
  }
  OMBRIX_WIDE static double first(Doubles doubles) noexcept { return _mm_cvtsd_f64(doubles); }
};

}  // namespace

OMBRIX_WIDE const char* scanNumberRowSse41(const NumberRowText& text,
                                           std::span<double> numbers) noexcept {
  return scanRowOfAnyCount<Sse41>(text, numbers);
}

}  // namespace ombrix::platform::detail

#endif

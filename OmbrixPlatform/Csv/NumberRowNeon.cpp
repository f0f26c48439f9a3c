#if defined(__AARCH64EL__)

#define OMBRIX_WIDE  // every 64-bit Arm has these instructions

#include <arm_neon.h>

#include "OmbrixPlatform/Csv/Detail/NumberRowWide.hpp"

namespace ombrix::platform::detail {
namespace {

struct Neon {
  using Bytes = uint8x16_t;
  using Fours = uint16x4_t;
  using Doubles = float64x2_t;

  static Bytes load(const void* bytes) noexcept {
    return vld1q_u8(static_cast<const std::uint8_t*>(bytes));
  }

  static Bytes every(char byte) noexcept { return vdupq_n_u8(static_cast<std::uint8_t>(byte)); }
  static bool isNone(Bytes bytes) noexcept { return vmaxvq_u8(bytes) == 0; }

  /// The bit of its place among eight, in each byte that is a mark.
  static Bytes marks(const char* text, Bytes delimiter) noexcept {
    const Bytes bytes = load(text);
    const Bytes isPoint = vceqq_u8(bytes, vdupq_n_u8('.'));
    const Bytes isEnd = vorrq_u8(vceqq_u8(bytes, delimiter), vcleq_u8(bytes, vdupq_n_u8('\r')));
    const Bytes places = vreinterpretq_u8_u64(vdupq_n_u64(0x80'40'20'10'08'04'02'01));
    return vandq_u8(vorrq_u8(isPoint, isEnd), places);
  }

  // Adding neighbours three times joins the bits of eight bytes in one.
  static std::uint64_t marksAt(const char* text, Bytes delimiter) noexcept {
    Bytes bits = marks(text, delimiter);
    for (int i = 0; i < 3; ++i) bits = vpaddq_u8(bits, bits);
    return vgetq_lane_u16(vreinterpretq_u16_u8(bits), 0);
  }

  static std::uint64_t marksInWord(const char* text, Bytes delimiter) noexcept {
    const Bytes low = vpaddq_u8(marks(text, delimiter), marks(text + 16, delimiter));
    const Bytes high = vpaddq_u8(marks(text + 32, delimiter), marks(text + 48, delimiter));
    const Bytes bits = vpaddq_u8(low, high);
    return vgetq_lane_u64(vreinterpretq_u64_u8(vpaddq_u8(bits, bits)), 0);
  }

  static Fours digitsBefore(const char* end, std::ptrdiff_t count, std::ptrdiff_t fractionCount,
                            Bytes& bad) noexcept {
    const Bytes text = vbslq_u8(load(kLastBytes + fractionCount), load(end - 16), load(end - 17));
    const Bytes digits = vandq_u8(vsubq_u8(text, vdupq_n_u8('0')), load(kLastBytes + count));
    bad = vorrq_u8(bad, vqsubq_u8(digits, vdupq_n_u8(9)));
    const uint8x8_t pairs = vmla_u8(vget_low_u8(vuzp2q_u8(digits, digits)),
                                    vget_low_u8(vuzp1q_u8(digits, digits)), vdup_n_u8(10));
    return vget_low_u16(
        vmlal_u8(vmovl_u8(vuzp2_u8(pairs, pairs)), vuzp1_u8(pairs, pairs), vdup_n_u8(100)));
  }

  static bool join(Fours one, Fours two, std::uint64_t* digits) noexcept {
    const uint16x8_t fours = vcombine_u16(one, two);
    const uint32x4_t eights = vmlal_u16(vmovl_u16(vget_low_u16(vuzp2q_u16(fours, fours))),
                                        vget_low_u16(vuzp1q_u16(fours, fours)), vdup_n_u16(10'000));
    const uint64x2_t both =
        vmlal_u32(vmovl_u32(vget_low_u32(vuzp2q_u32(eights, eights))),
                  vget_low_u32(vuzp1q_u32(eights, eights)), vdup_n_u32(100'000'000));
    vst1q_u64(digits, both);
    return isNone(vreinterpretq_u8_u64(vshrq_n_u64(both, 52)));
  }

  static Doubles quotients(const std::uint64_t* digits, const double* scales,
                           const std::uint64_t* signs) noexcept {
    const Doubles values = vdivq_f64(vcvtq_f64_u64(vld1q_u64(digits)), vld1q_f64(scales));
    return vreinterpretq_f64_u64(veorq_u64(vreinterpretq_u64_f64(values), vld1q_u64(signs)));
  }

  static void store(Doubles doubles, double* to) noexcept { vst1q_f64(to, doubles); }
  static double first(Doubles doubles) noexcept { return vgetq_lane_f64(doubles, 0); }
};

}  // namespace

const char* scanNumberRowNeon(const NumberRowText& text, std::span<double> numbers) noexcept {
  return scanRowOfAnyCount<Neon>(text, numbers);
}

}  // namespace ombrix::platform::detail

#endif

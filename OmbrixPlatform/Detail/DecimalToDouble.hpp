#pragma once

// Private: rounds decimals to the nearest double, and reads digits eight at a time.

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ombrix::platform::detail {

__extension__ using UInt128 = unsigned __int128;

inline constexpr std::array<double, 23> kExactPowersOf10 = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

inline constexpr std::array<std::uint64_t, 20> kIntegerPowersOf10 = [] {
  std::array<std::uint64_t, 20> powers{};
  std::uint64_t power = 1;
  for (auto& entry : powers) {
    entry = power;
    power *= 10;
  }
  return powers;
}();

/// The largest exponent, positive or negative, that `decimalToDouble` accepts.
inline constexpr int kMaximumExponent = 27;

struct PowerOf5 {
  std::uint64_t high, low;
};

/// 5^q for q from -27 to 27, scaled to 128 bits with the top bit set: exact for q >= 0, truncated
/// plus one in the last place for q < 0.
inline constexpr std::array<PowerOf5, 2 * kMaximumExponent + 1> kPowersOf5 = [] {
  std::array<PowerOf5, 2 * kMaximumExponent + 1> powers{};
  UInt128 power = 1;
  for (std::size_t k = 0; k <= kMaximumExponent; ++k, power *= 5) {
    UInt128 scaled = power;
    while ((scaled >> 127) == 0) scaled <<= 1;
    powers[kMaximumExponent + k] = {static_cast<std::uint64_t>(scaled >> 64),
                                    static_cast<std::uint64_t>(scaled)};
    if (k == 0) continue;
    UInt128 remainder = 1;
    while (remainder < power) remainder <<= 1;
    remainder >>= 1;
    UInt128 reciprocal = 0;
    for (int bit = 0; bit < 128; ++bit) {
      remainder <<= 1;
      reciprocal <<= 1;
      if (remainder >= power) {
        remainder -= power;
        reciprocal |= 1;
      }
    }
    reciprocal += 1;
    powers[kMaximumExponent - k] = {static_cast<std::uint64_t>(reciprocal >> 64),
                                    static_cast<std::uint64_t>(reciprocal)};
  }
  return powers;
}();

/// The double nearest to digits x 10^exponent, for digits that no double holds exactly. Source: D.
/// Lemire, "Number Parsing at a Gigabyte per Second" (2021), algorithm 1; for this range of
/// exponents the 128-bit product is always sufficient.
/// @param digits  not zero
/// @param exponent  -kMaximumExponent to kMaximumExponent
inline double roundDecimal(std::uint64_t digits, int exponent) noexcept {
  const auto [high, low] = kPowersOf5[static_cast<std::size_t>(exponent + kMaximumExponent)];
  const int leadingZeros = std::countl_zero(digits);
  const std::uint64_t scaled = digits << leadingZeros;
  UInt128 product = static_cast<UInt128>(scaled) * high;
  // Rounding needs 52 fraction bits, the hidden bit and two more; when all bits below are set, the
  // lower half of the power may carry into them.
  if ((static_cast<std::uint64_t>(product >> 64) & 0x1FF) == 0x1FF) {
    product += (static_cast<UInt128>(scaled) * low) >> 64;
  }
  const auto productHigh = static_cast<std::uint64_t>(product >> 64);
  const auto productLow = static_cast<std::uint64_t>(product);
  const int upperBit = static_cast<int>(productHigh >> 63);
  std::uint64_t mantissa = productHigh >> (upperBit + 9);
  std::int64_t binaryExponent =
      (((152170 + 65536) * exponent) >> 16) + 63 + upperBit - leadingZeros + 1023;
  const bool tieIsPossible = productLow <= 1 && exponent >= -4 && exponent <= 23;
  if (tieIsPossible && (mantissa & 3) == 1 && (mantissa << (upperBit + 9)) == productHigh) {
    mantissa &= ~std::uint64_t{1};
  }
  mantissa += mantissa & 1;
  mantissa >>= 1;
  if (mantissa >= (std::uint64_t{2} << 52)) {
    mantissa = std::uint64_t{1} << 52;
    ++binaryExponent;
  }
  mantissa &= ~(std::uint64_t{1} << 52);
  return std::bit_cast<double>(mantissa | (static_cast<std::uint64_t>(binaryExponent) << 52));
}

/// The double nearest to digits x 10^exponent; |exponent| is at most kMaximumExponent.
inline double decimalToDouble(std::uint64_t digits, int exponent) noexcept {
  if (digits <= (std::uint64_t{1} << 53) && exponent >= -22 && exponent <= 22) [[likely]] {
    // Both operands are exact, so a single operation rounds correctly.
    const auto exact = static_cast<double>(static_cast<std::int64_t>(digits));
    return exponent < 0 ? exact / kExactPowersOf10[static_cast<std::size_t>(-exponent)]
                        : exact * kExactPowersOf10[static_cast<std::size_t>(exponent)];
  }
  return roundDecimal(digits, exponent);
}

/// Whether a double can represent a decimal.
enum class NumberFit : std::uint8_t {
  near,
  tooLarge,  ///< Its double is infinite.
  tooSmall,  ///< Its double is zero, but the decimal is not.
};

struct DecimalNumber {
  double value = 0;
  NumberFit fit = NumberFit::near;
  const char* end = nullptr;  ///< After the number; the start of the text if there is none.
};

/// Reads the number at the start of a text, of any length: an optional "-", digits with an optional
/// "." and an optional exponent; also whatever `std::from_chars` accepts ("nan", "inf").
/// @return The nearest double, ties to even, signed even when it does not fit.
DecimalNumber readDecimal(std::string_view text) noexcept;

/// Whether an 8-byte load puts the first text byte into the lowest bits.
inline constexpr bool kWordsAreLittleEndian = std::endian::native == std::endian::little;

inline std::uint64_t loadEightBytes(const char* text) noexcept {
  std::uint64_t word;
  std::memcpy(&word, text, sizeof word);
  return word;
}

/// The number of digits among eight text bytes, counted from the lowest to the first non-digit.
inline unsigned leadingDigitCount(std::uint64_t word) noexcept {
  // A byte is a digit when its high half is 3 and stays 3 after adding 6. A carry out of a byte can
  // only affect bytes after a non-digit.
  constexpr std::uint64_t kHighHalves = 0xF0F0F0F0F0F0F0F0;
  constexpr std::uint64_t kThrees = 0x3030303030303030;
  const std::uint64_t other =
      ((word & kHighHalves) ^ kThrees) | (((word + 0x0606060606060606) & kHighHalves) ^ kThrees);
  return static_cast<unsigned>(std::countr_zero(other)) / 8;
}

/// The value of the digits in the lowest `count` bytes (1 to 8) of a word.
inline std::uint64_t digitsValue(std::uint64_t word, unsigned count) noexcept {
  word = (word & 0x0F0F0F0F0F0F0F0F) << (64 - 8 * count);
  word = word * 10 + (word >> 8);
  constexpr std::uint64_t kPairs = 0x000000FF000000FF;
  constexpr std::uint64_t kHundredAndMillion = 100 + (std::uint64_t{1'000'000} << 32);
  constexpr std::uint64_t kOneAndTenThousand = 1 + (std::uint64_t{10'000} << 32);
  return (((word & kPairs) * kHundredAndMillion) +
          (((word >> 16) & kPairs) * kOneAndTenThousand)) >>
         32;
}

}  // namespace ombrix::platform::detail

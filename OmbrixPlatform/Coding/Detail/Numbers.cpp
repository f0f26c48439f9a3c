#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kLongest = 32;

// The eight decimal digits of a number, first digit in the lowest byte: split into halves three
// times over, all parts at once.
std::uint64_t eightDigits(std::uint64_t number) noexcept {
  const std::uint64_t fours = number / 10'000 | number % 10'000 << 32;
  const std::uint64_t hundreds = (fours * 10'486 >> 20) & 0x0000007F'0000007FU;
  const std::uint64_t twos = hundreds | (fours - 100 * hundreds) << 16;
  const std::uint64_t tens = (twos * 103 >> 10) & 0x000F000F'000F000FU;
  return tens | (twos - 10 * tens) << 8;
}

// The value's decimal in units of one kScale-th, if it has one of at most 15 digits: no other
// decimal of that length reads back, so without its trailing zeros it is the shortest. Empty if it
// has none.
template <std::int64_t kScale>
char* putDecimal(char* out, double magnitude) noexcept {
  constexpr std::int64_t kNineDigits = 1'000'000'000;
  const auto units = static_cast<std::int64_t>(magnitude * static_cast<double>(kScale) + 0.5);
  if (static_cast<double>(units) / static_cast<double>(kScale) != magnitude) return nullptr;
  out = std::to_chars(out, out + kLongest, units / kScale).ptr;
  const auto fraction = static_cast<std::uint64_t>(units % kScale * (kNineDigits / kScale));
  const std::uint64_t first = fraction / 100'000'000;
  const std::uint64_t others = eightDigits(fraction % 100'000'000);
  std::uint64_t text = others | 0x30303030'30303030U;
  if constexpr (std::endian::native == std::endian::big) text = std::byteswap(text);
  out[0] = '.';
  out[1] = static_cast<char>('0' + first);
  std::memcpy(out + 2, &text, sizeof text);
  if (others != 0) return out + 10 - std::countl_zero(others) / 8;
  return first != 0 ? out + 2 : out;
}

}  // namespace

char* putShortest(char* out, double value) noexcept {
  const double magnitude = std::fabs(value);
  char* start = out;
  // Below, and for large numbers, the form with an exponent may be shorter.
  if (magnitude >= 1e-3 && magnitude < 1e12) {
    if (std::signbit(value)) *out++ = '-';
    char* end = magnitude < 1e6   ? putDecimal<1'000'000'000>(out, magnitude)
                : magnitude < 1e9 ? putDecimal<1'000'000>(out, magnitude)
                                  : putDecimal<1'000>(out, magnitude);
    if (end != nullptr) return end;
  }
  return std::to_chars(start, start + kLongest, value).ptr;
}

}  // namespace ombrix::platform::detail

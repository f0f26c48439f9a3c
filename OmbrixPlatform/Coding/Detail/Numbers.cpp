#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kLongest = 32;

// The value's decimal in units of 10^-kDigits, where there is one with at most 15 digits: such a
// decimal is the only one of its length that reads back, so without its trailing zeros it is the
// shortest. Null where there is none.
template <int kDigits, std::int64_t kScale>
char* putDecimal(char* out, double magnitude) noexcept {
  const auto units = static_cast<std::int64_t>(magnitude * static_cast<double>(kScale) + 0.5);
  if (static_cast<double>(units) / static_cast<double>(kScale) != magnitude) return nullptr;
  out = std::to_chars(out, out + kLongest, units / kScale).ptr;
  *out = '.';
  auto fraction = units % kScale;
  for (int i = kDigits; i > 0; --i, fraction /= 10) out[i] = static_cast<char>('0' + fraction % 10);
  out += kDigits;
  while (*out == '0') --out;
  return *out == '.' ? out : out + 1;
}

}  // namespace

char* putShortest(char* out, double value) noexcept {
  const double magnitude = std::fabs(value);
  char* start = out;
  // Below, and for large numbers, the form with an exponent may be shorter.
  if (magnitude >= 1e-3 && magnitude < 1e12) {
    if (std::signbit(value)) *out++ = '-';
    char* end = magnitude < 1e6   ? putDecimal<9, 1'000'000'000>(out, magnitude)
                : magnitude < 1e9 ? putDecimal<6, 1'000'000>(out, magnitude)
                                  : putDecimal<3, 1'000>(out, magnitude);
    if (end != nullptr) return end;
  }
  return std::to_chars(start, start + kLongest, value).ptr;
}

}  // namespace ombrix::platform::detail

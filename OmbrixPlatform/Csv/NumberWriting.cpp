#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"

namespace ombrix::platform {
namespace {

using detail::kExactPowersOf10;
using detail::kIntegerPowersOf10;

/// Below this number of units, neighbouring decimals of 15 digits name different doubles.
constexpr double kFifteenDigits = 1e15;

constexpr std::array<char, 200> kDigitPairs = [] {
  std::array<char, 200> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

char* putPair(char* out, std::uint64_t below100) noexcept {
  std::memcpy(out, &kDigitPairs[2 * below100], 2);
  return out + 2;
}

char* putWhole(char* out, std::uint64_t number) noexcept {
  if (number >= 10'000) {
    out = putWhole(out, number / 10'000);
    out = putPair(out, number % 10'000 / 100);
    return putPair(out, number % 100);
  }
  if (number >= 100) {
    out = putWhole(out, number / 100);
    return putPair(out, number % 100);
  }
  if (number >= 10) return putPair(out, number);
  *out = static_cast<char>('0' + number);
  return out + 1;
}

/// Writes the point and exactly `count` digits; nothing when `count` is 0. Inline, since the usual
/// counts are constants.
[[gnu::always_inline]] inline char* putFraction(char* out, std::uint64_t fraction,
                                                int count) noexcept {
  if (count == 0) return out;
  *out++ = '.';
  char* position = out + count;
  for (int left = count; left >= 2; left -= 2, fraction /= 100) {
    position -= 2;
    putPair(position, fraction % 100);
  }
  if (count % 2 != 0) *out = static_cast<char>('0' + fraction % 10);
  return out + count;
}

/// Writes `units` of 10^-fractionDigits.
[[gnu::always_inline]] inline char* putUnits(char* out, std::uint64_t units,
                                             int fractionDigits) noexcept {
  const std::uint64_t scale = kIntegerPowersOf10[static_cast<std::size_t>(fractionDigits)];
  return putFraction(putWhole(out, units / scale), units % scale, fractionDigits);
}

/// The largest number of units whose nearest double does not exceed `value`; value x scale < 1e15.
///
/// Below that bound a number of units has at most 15 digits. If such a decimal maps to the value,
/// it is the result; otherwise the value lies strictly between two of them, where truncating the
/// value and truncating its shortest decimal give the same lower one. The product may be rounded up
/// past the next unit and the quotient test may accept it, by at most one unit.
inline std::uint64_t unitsNotAbove(double value, double scale) noexcept {
  auto units = static_cast<std::int64_t>(value * scale);
  if (static_cast<double>(units) / scale > value) {
    --units;
  } else if (static_cast<double>(units + 1) / scale <= value) {
    ++units;
  }
  return static_cast<std::uint64_t>(units);
}

/// Truncates the exact value of `value`, at least 1 and below 2^53.
char* putExact(char* out, double value, int fractionDigits) noexcept {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const std::uint64_t mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | std::uint64_t{1} << 52;
  const auto fractionBits = 52 + 1023 - static_cast<int>(bits >> 52);
  const std::uint64_t whole = mantissa >> fractionBits;
  const std::uint64_t fraction = mantissa - (whole << fractionBits);
  const detail::UInt128 scaled = static_cast<detail::UInt128>(fraction) *
                                 kIntegerPowersOf10[static_cast<std::size_t>(fractionDigits)];
  return putFraction(putWhole(out, whole), static_cast<std::uint64_t>(scaled >> fractionBits),
                     fractionDigits);
}

/// Writes any finite value of at least 1, using the standard library's shortest digits.
char* putLarge(char* out, double value, int fractionDigits) noexcept {
  char shortest[32];
  const auto [end, error] =
      std::to_chars(shortest, shortest + sizeof shortest, value, std::chars_format::scientific);
  const std::string_view text(shortest, static_cast<std::size_t>(end - shortest));
  const auto mark = text.find('e');
  int exponent = 0;
  std::from_chars(shortest + mark + 2, end, exponent);
  char digits[24];
  int count = 0;
  for (const char c : text.substr(0, mark)) {
    if (c != '.') digits[count++] = c;
  }
  if (count <= 15) {
    for (int place = 0; place <= exponent + fractionDigits; ++place) {
      if (place == exponent + 1) *out++ = '.';
      *out++ = place < count ? digits[place] : '0';
    }
    return out;
  }
  if (value < 0x1p53) return putExact(out, value, fractionDigits);
  out = std::to_chars(out, out + 320, value, std::chars_format::fixed, 0).ptr;
  if (fractionDigits == 0) return out;
  *out++ = '.';
  std::memset(out, '0', static_cast<std::size_t>(fractionDigits));
  return out + fractionDigits;
}

/// Writes a finite value that is not negative. Inline, since the usual digits are constants.
[[gnu::always_inline]] inline char* putMagnitude(char* out, double value,
                                                 int fractionDigits) noexcept {
  const double scale = kExactPowersOf10[static_cast<std::size_t>(fractionDigits)];
  const double bound = kFifteenDigits / scale;
  if (value < bound) [[likely]] {
    return putUnits(out, unitsNotAbove(value, scale), fractionDigits);
  }
  if (value < bound * 10 && fractionDigits > 0) {
    // One digit more than 15, as in seconds since 1970 with six decimals: a decimal of 15 digits
    // that names the value has one fraction digit less.
    const double coarse = kExactPowersOf10[static_cast<std::size_t>(fractionDigits - 1)];
    const std::uint64_t units = unitsNotAbove(value, coarse);
    if (static_cast<double>(units) / coarse == value) {
      return putUnits(out, units * 10, fractionDigits);
    }
    if (value < 0x1p53) return putExact(out, value, fractionDigits);
  }
  return putLarge(out, value, fractionDigits);
}

}  // namespace

char* TruncatingNumberFormat::write(double value, char* out) const noexcept {
  if (!std::isfinite(value)) return nullptr;
  *out = '-';
  out += std::signbit(value);
  value = std::abs(value);
  switch (fractionDigits_) {
    case 1:
      return putMagnitude(out, value, 1);
    case 6:
      return putMagnitude(out, value, 6);
    default:
      return putMagnitude(out, value, fractionDigits_);
  }
}

std::optional<std::string> TruncatingNumberFormat::string(double value) const {
  char text[kRequiredBytes];
  char* const end = write(value, text);
  if (end == nullptr) return std::nullopt;
  return std::string(+text, end);
}

}  // namespace ombrix::platform

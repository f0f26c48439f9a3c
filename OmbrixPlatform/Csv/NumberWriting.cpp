#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "OmbrixPlatform/Csv/Detail/DecimalToDouble.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace ombrix::platform {
namespace {

using detail::kExactPowersOf10;
using detail::kIntegerPowersOf10;

/// Below this count of units, neighbouring decimals of 15 digits name different doubles.
constexpr double kFifteenDigits = 1e15;

constexpr std::array<char, 200> kDigitPairs = [] {
  std::array<char, 200> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

/// Writes exactly `count` digits, with leading zeros.
void putDigits(char* out, std::uint64_t number, int count) noexcept {
  char* position = out + count;
  while (position - out >= 2) {
    position -= 2;
    std::memcpy(position, &kDigitPairs[2 * (number % 100)], 2);
    number /= 100;
  }
  if (position != out) *out = static_cast<char>('0' + number % 10);
}

int digitCount(std::uint64_t number) noexcept {
  int count = 1;
  while (count < 20 && number >= kIntegerPowersOf10[static_cast<std::size_t>(count)]) ++count;
  return count;
}

/// Writes a whole number and a fraction in units of 10^-fractionDigits.
char* putParts(char* out, std::uint64_t whole, std::uint64_t fraction,
               int fractionDigits) noexcept {
  const int wholeCount = digitCount(whole);
  putDigits(out, whole, wholeCount);
  out += wholeCount;
  if (fractionDigits == 0) return out;
  *out++ = '.';
  putDigits(out, fraction, fractionDigits);
  return out + fractionDigits;
}

char* putScaled(char* out, std::uint64_t units, int fractionDigits) noexcept {
  const std::uint64_t scale = kIntegerPowersOf10[static_cast<std::size_t>(fractionDigits)];
  return putParts(out, units / scale, units % scale, fractionDigits);
}

/// The largest count of units whose nearest double does not exceed `value`; value x scale < 1e15.
///
/// Below that bound a count of units has at most 15 digits. If such a decimal names the value it
/// is the one that is found; if not, the value lies strictly between two of them, where cutting
/// the value and cutting its shortest decimal give the lower one. The product may be rounded up
/// past the next unit and the quotient test may admit it, by one at most.
std::uint64_t unitsNotAbove(double value, double scale) noexcept {
  auto units = static_cast<std::int64_t>(value * scale);
  if (static_cast<double>(units) / scale > value) {
    --units;
  } else if (static_cast<double>(units + 1) / scale <= value) {
    ++units;
  }
  return static_cast<std::uint64_t>(units);
}

/// Cuts the exact value of `value`, at least 1 and below 2^53.
char* putExact(char* out, double value, int fractionDigits) noexcept {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const std::uint64_t mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | std::uint64_t{1} << 52;
  const auto fractionBits = 52 + 1023 - static_cast<int>(bits >> 52);
  const std::uint64_t whole = mantissa >> fractionBits;
  const std::uint64_t fraction = mantissa - (whole << fractionBits);
  const detail::UInt128 scaled = static_cast<detail::UInt128>(fraction) *
                                 kIntegerPowersOf10[static_cast<std::size_t>(fractionDigits)];
  return putParts(out, whole, static_cast<std::uint64_t>(scaled >> fractionBits), fractionDigits);
}

/// Any finite value of at least 1, by the standard library's shortest digits.
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

}  // namespace

char* TruncatingNumberFormat::write(double value, char* out) const noexcept {
  if (!std::isfinite(value)) return nullptr;
  if (std::signbit(value)) {
    *out++ = '-';
    value = -value;
  }
  const double scale = kExactPowersOf10[static_cast<std::size_t>(fractionDigits_)];
  const double bound = kFifteenDigits / scale;
  if (value < bound) [[likely]] {
    return putScaled(out, unitsNotAbove(value, scale), fractionDigits_);
  }
  if (value < bound * 10 && fractionDigits_ > 0) {
    // One digit more than 15, as in seconds since 1970 with six decimals: the decimal that names
    // the value, if there is one, has one fraction digit less.
    const double coarse = kExactPowersOf10[static_cast<std::size_t>(fractionDigits_ - 1)];
    const std::uint64_t units = unitsNotAbove(value, coarse);
    if (static_cast<double>(units) / coarse == value) {
      return putScaled(out, units * 10, fractionDigits_);
    }
    if (value < 0x1p53) return putExact(out, value, fractionDigits_);
  }
  return putLarge(out, value, fractionDigits_);
}

std::optional<std::string> TruncatingNumberFormat::string(double value) const {
  char text[kRequiredBytes];
  char* const end = write(value, text);
  if (end == nullptr) return std::nullopt;
  return std::string(+text, end);
}

}  // namespace ombrix::platform

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>

#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"

namespace ombrix::platform {
namespace {

constexpr unsigned digitOf(char c) noexcept {
  return static_cast<unsigned>(static_cast<unsigned char>(c)) - unsigned{'0'};
}

/// Whether `text` equals `word`, ignoring case; `word` is in lower case.
bool spells(std::string_view text, std::string_view word) noexcept {
  if (text.size() != word.size()) return false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if ((text[i] | 0x20) != word[i]) return false;
  }
  return true;
}

std::optional<double> namedNumber(std::string_view text) noexcept {
  if (spells(text, "inf") || spells(text, "infinity")) {
    return std::numeric_limits<double>::infinity();
  }
  if (spells(text, "nan")) return std::numeric_limits<double>::quiet_NaN();
  return std::nullopt;
}

/// Adds a run of digits to a number. The number wraps at more than 19 digits, so callers that read
/// long runs count them.
const char* addDigits(const char* text, const char* end, std::uint64_t& number) noexcept {
  if constexpr (detail::kWordsAreLittleEndian) {
    while (end - text >= 8) {
      const std::uint64_t word = detail::loadEightBytes(text);
      const unsigned count = detail::leadingDigitCount(word);
      if (count == 0) return text;
      number = number * detail::kIntegerPowersOf10[count] + detail::digitsValue(word, count);
      text += count;
      if (count < 8) return text;
    }
  }
  for (; text != end && digitOf(*text) < 10; ++text) number = number * 10 + digitOf(*text);
  return text;
}

/// The exponent after "e"; empty when it is malformed. Capped beyond the range of any double, since
/// the caller only compares it.
std::optional<int> exponentFromText(std::string_view text) noexcept {
  constexpr int kLarge = 100'000;
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (text.empty()) return std::nullopt;
  int exponent = 0;
  for (const char c : text) {
    if (digitOf(c) >= 10) return std::nullopt;
    if (exponent < kLarge) exponent = exponent * 10 + static_cast<int>(digitOf(c));
  }
  return negative ? -exponent : exponent;
}

std::optional<double> unsignedNumber(std::string_view text) noexcept {
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  std::uint64_t digits = 0;
  const char* position = addDigits(begin, end, digits);
  std::ptrdiff_t digitCount = position - begin;
  std::ptrdiff_t fractionCount = 0;
  if (position != end && *position == '.') {
    const char* const fraction = position + 1;
    position = addDigits(fraction, end, digits);
    fractionCount = position - fraction;
    digitCount += fractionCount;
  }
  if (digitCount == 0) return namedNumber(text);
  int exponent = 0;
  if (position != end) {
    if ((*position | 0x20) != 'e') return std::nullopt;
    const auto written = exponentFromText({position + 1, end});
    if (!written) return std::nullopt;
    exponent = *written;
  }
  if (digitCount <= 19 && exponent >= -detail::kMaximumExponent + fractionCount &&
      exponent <= detail::kMaximumExponent) [[likely]] {
    if (digits == 0) return 0.0;
    return detail::decimalToDouble(digits, exponent - static_cast<int>(fractionCount));
  }
  return detail::readDecimal(text).value;
}

}  // namespace

detail::DecimalNumber detail::readDecimal(std::string_view text) noexcept {
  DecimalNumber number;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number.value);
  number.end = end;
  if (error != std::errc::result_out_of_range) return number;
  // The library does not say which limit was exceeded, but only a number below one can be too small
  // for a double. The distance of the first significant digit from the point:
  const bool isNegative = text.starts_with('-');
  const std::string_view whole(text.data() + isNegative, end);
  const auto exponentMark = whole.find_first_of("eE");
  const auto mantissa = whole.substr(0, exponentMark);
  const auto first = mantissa.find_first_not_of("0.");
  const auto point = std::min(mantissa.find('.'), mantissa.size());
  const auto position = first < point ? static_cast<std::ptrdiff_t>(point - first)
                                      : -static_cast<std::ptrdiff_t>(first - point);
  std::ptrdiff_t exponent = 0;
  if (exponentMark != whole.npos) {
    auto digits = whole.substr(exponentMark + 1);
    if (digits.front() == '+') digits.remove_prefix(1);
    if (std::from_chars(digits.data(), digits.data() + digits.size(), exponent).ec != std::errc{}) {
      constexpr auto kBeyondEveryText = std::numeric_limits<std::ptrdiff_t>::max() / 2;
      exponent = digits.front() == '-' ? -kBeyondEveryText : kBeyondEveryText;
    }
  }
  const bool isLarge = position + exponent > 0;
  number.fit = isLarge ? NumberFit::tooLarge : NumberFit::tooSmall;
  number.value = isLarge ? std::numeric_limits<double>::infinity() : 0.0;
  if (isNegative) number.value = -number.value;
  return number;
}

std::optional<double> doubleFromText(std::string_view text) noexcept {
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  const auto number = unsignedNumber(text);
  return number && negative ? -*number : number;
}

}  // namespace ombrix::platform

#include "OmbrixPlatform/Csv/Detail/NumberRow.hpp"

#include <cstddef>

#include "OmbrixPlatform/Csv/Detail/DecimalToDouble.hpp"

namespace ombrix::platform::detail {
namespace {

/// The bytes that one number may load, from its first one on: two runs of digits of up to two
/// words each, a sign and a point.
constexpr std::ptrdiff_t kLoadedBytes = 40;

/// A run of 1 to 15 digits; 0 when there is none, or a longer one.
unsigned scanDigits(const char* text, std::uint64_t& digits) noexcept {
  const std::uint64_t word = loadEightBytes(text);
  const unsigned count = leadingDigitCount(word);
  if (count == 0) return 0;
  digits = digits * kIntegerPowersOf10[count] + digitsValue(word, count);
  if (count < 8) return count;
  const std::uint64_t second = loadEightBytes(text + 8);
  const unsigned secondCount = leadingDigitCount(second);
  if (secondCount == 8) return 0;
  if (secondCount == 0) return 8;
  digits = digits * kIntegerPowersOf10[secondCount] + digitsValue(second, secondCount);
  return 8 + secondCount;
}

/// Reads the number at `text` and gives the byte behind it; null when it is not plain.
const char* scanNumber(const char* text, double& number) noexcept {
  const bool negative = *text == '-';
  text += negative;
  std::uint64_t digits = 0;
  const unsigned wholeCount = scanDigits(text, digits);
  if (wholeCount == 0) return nullptr;
  text += wholeCount;
  unsigned fractionCount = 0;
  if (*text == '.') {
    ++text;
    fractionCount = scanDigits(text, digits);
    if (fractionCount == 0 || wholeCount + fractionCount > 19) return nullptr;
    text += fractionCount;
  }
  const double magnitude = decimalToDouble(digits, -static_cast<int>(fractionCount));
  number = negative ? -magnitude : magnitude;
  return text;
}

}  // namespace

const char* scanNumberRowPortable(const NumberRowText& text, std::span<double> numbers) noexcept {
  if constexpr (!kWordsAreLittleEndian) return nullptr;
  const char* position = text.begin;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (text.readableEnd - position < kLoadedBytes) return nullptr;
    position = scanNumber(position, numbers[i]);
    if (position == nullptr) return nullptr;
    const char mark = *position++;
    if (i + 1 < numbers.size()) {
      if (mark != text.delimiter) return nullptr;
    } else if (mark == '\r') {
      position += *position == '\n' && position < text.end;
    } else if (mark != '\n') {
      return nullptr;
    }
  }
  // What lies behind the text may look like a row, too.
  return position <= text.end ? position : nullptr;
}

}  // namespace ombrix::platform::detail

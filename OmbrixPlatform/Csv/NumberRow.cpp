#include "OmbrixPlatform/Csv/Detail/NumberRow.hpp"

#include <cstddef>

#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"

namespace ombrix::platform::detail {
namespace {

/// The number of bytes loaded for one number, from its first one on: two runs of digits of up to
/// two words each, a sign and a point.
constexpr std::ptrdiff_t kLoadedBytes = 40;

/// Scans the second word of a run of more than 8 digits; 0 when the run is longer than 15.
[[gnu::noinline]] unsigned scanMoreDigits(const char* text, std::uint64_t& digits) noexcept {
  const std::uint64_t word = loadEightBytes(text);
  const unsigned count = leadingDigitCount(word);
  if (count == 8) return 0;
  if (count == 0) return 8;
  digits = digits * kIntegerPowersOf10[count] + digitsValue(word, count);
  return 8 + count;
}

/// Scans a run of 1 to 15 digits and appends it to those before; 0 for no run or a longer one.
[[gnu::always_inline]] inline unsigned scanDigits(const char* text,
                                                  std::uint64_t& digits) noexcept {
  const std::uint64_t word = loadEightBytes(text);
  const unsigned count = leadingDigitCount(word);
  if (count == 0) return 0;
  digits = digits * kIntegerPowersOf10[count] + digitsValue(word, count);
  return count < 8 ? count : scanMoreDigits(text + 8, digits);
}

/// Reads the number at `text` and returns the byte after it; null when it is not plain.
[[gnu::always_inline]] inline const char* scanNumber(const char* text, double& number) noexcept {
  const bool negative = *text == '-';
  text += negative;
  std::uint64_t digits = 0;
  const unsigned wholeCount = scanDigits(text, digits);
  if (wholeCount == 0) return nullptr;
  text += wholeCount;
  unsigned fractionCount = 0;
  if (*text == '.') {
    ++text;
    const unsigned count = leadingDigitCount(loadEightBytes(text));
    // The usual counts have branches of their own: after a predicted branch the processor continues
    // with the next number, while a computed count would make it wait.
    if (count == 6) {
      fractionCount = 6;
      digits = digits * 1'000'000 + digitsValue(loadEightBytes(text), 6);
      text += 6;
    } else if (count == 1) {
      fractionCount = 1;
      digits = digits * 10 + static_cast<unsigned char>(*text - '0');
      text += 1;
    } else {
      fractionCount = scanDigits(text, digits);
      if (fractionCount == 0) return nullptr;
      text += fractionCount;
    }
    if (wholeCount + fractionCount > 19) return nullptr;
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
  // Bytes after the text may look like a row, too.
  return position <= text.end ? position : nullptr;
}

NumberRowScanner fastestNumberRowScanner() noexcept {
#if defined(__x86_64__) && defined(__GNUC__)
  if (__builtin_cpu_supports("sse4.1")) return &scanNumberRowSse41;
#elif defined(__AARCH64EL__)
  return &scanNumberRowNeon;
#endif
  return &scanNumberRowPortable;
}

}  // namespace ombrix::platform::detail

#pragma once

// Private: rows of plain numbers, sixteen bytes at a time. One source for each kind of processor
// includes this. It defines OMBRIX_WIDE before, the attribute of functions that use the processor's
// instructions, and passes them as `Wide`:
//
//   Bytes                         16 bytes
//   Fours                         the last 16 digits of a number as four numbers of four digits
//   Doubles                       two of them
//   marksInWord(text, delimiter)  a bit for each of 64 bytes: points, delimiters, control
//   characters marksAt(text, delimiter)      the same for 16 bytes digitsBefore(end, count,
//   fractionCount, bad)
//       The last `count` (1 to 16) digits before `end`, skipping the point before the last
//       `fractionCount`; bytes of `bad` become non-zero where the text has no digit.
//   join(one, two, digits)        stores two numbers; false when one needs more than 52 bits
//   quotients(digits, scales, signs), store(doubles, to), first(doubles)

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>

#include "OmbrixPlatform/Csv/Detail/NumberRow.hpp"
#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kMostNumbers = 16;

/// The first scan for marks covers this many bytes, enough for most rows; a word holds the marks of
/// 64. After a fixed number of fields, so that the branch is predictable, the word is shifted to
/// cover the rest; longer rows load further words.
constexpr std::ptrdiff_t kWindowBytes = 80;
constexpr std::size_t kFieldsInFirstWord = 4;

/// Bytes before a row that its first number may load.
constexpr std::ptrdiff_t kBytesBefore = 32;

/// The digits before the last 16 are added in a second word.
constexpr std::ptrdiff_t kDigitsInVector = 16;

/// Sixteen bytes off, then sixteen on: loading at n sets the last n bytes.
alignas(32) constexpr unsigned char kLastBytes[32] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/// Removes the next mark and returns its place; 63 when none is left.
inline std::ptrdiff_t nextMark(std::uint64_t& marks) noexcept {
  const auto place = std::countr_zero(marks | std::uint64_t{1} << 63);
  marks &= marks - 1;
  return place;
}

/// The numbers of a row during the scan; two are processed in each step.
template <class Wide>
struct Row {
  typename Wide::Fours fours[kMostNumbers + 1];
  alignas(16) std::array<std::uint64_t, kMostNumbers + 1> digits;
  alignas(16) std::array<double, kMostNumbers + 1> scales;
  alignas(16) std::array<std::uint64_t, kMostNumbers + 1> signs;
  std::array<std::uint64_t, kMostNumbers> leading;  ///< Digits before the last 16.
  std::array<int, kMostNumbers> fractionCounts;
  bool hasLeading = false;
};

template <class Wide, std::size_t Extent>
OMBRIX_WIDE inline void convert(Row<Wide>& row, std::span<double, Extent> numbers) noexcept {
  const std::size_t count = numbers.size();
  row.fours[count] = typename Wide::Fours{};
  bool fitsDoubles = true;
  for (std::size_t i = 0; i < count; i += 2) {
    fitsDoubles &= Wide::join(row.fours[i], row.fours[i + 1], &row.digits[i]);
  }
  if (!fitsDoubles || row.hasLeading) [[unlikely]] {
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t digits = row.leading[i] * kIntegerPowersOf10[16] + row.digits[i];
      const double magnitude = decimalToDouble(digits, -row.fractionCounts[i]);
      numbers[i] = row.signs[i] != 0 ? -magnitude : magnitude;
    }
    return;
  }
  std::size_t i = 0;
  for (; i + 2 <= count; i += 2) {
    Wide::store(Wide::quotients(&row.digits[i], &row.scales[i], &row.signs[i]), &numbers[i]);
  }
  if (i < count) {
    numbers[i] = Wide::first(Wide::quotients(&row.digits[i], &row.scales[i], &row.signs[i]));
  }
}

/// The same body for every count of numbers; a count known at compile time unrolls it.
template <class Wide, std::size_t Extent>
OMBRIX_WIDE const char* scanRow(const NumberRowText& text,
                                std::span<double, Extent> numbers) noexcept {
  const std::size_t count = numbers.size();
  const char* position = text.begin;
  if (position - text.readableBegin < kBytesBefore || text.readableEnd - position < kWindowBytes ||
      count > kMostNumbers) {
    return scanNumberRowPortable(text, numbers);
  }
  const typename Wide::Bytes delimiter = Wide::every(text.delimiter);
  const char* window = position;
  const std::uint64_t firstMarks = Wide::marksInWord(window, delimiter);
  std::uint64_t marks = firstMarks;
  const std::uint64_t marksBehind = Wide::marksAt(window + 64, delimiter);
  typename Wide::Bytes bad = {};
  Row<Wide> row;
  for (std::size_t i = 0; i < count; ++i) {
    if (i == kFieldsInFirstWord && position - window < 64) {
      const std::ptrdiff_t shift = position - window;
      marks = firstMarks >> shift | marksBehind << (64 - shift);
      window = position;
    }
    if ((marks & (marks - 1)) == 0) [[unlikely]] {
      if (text.readableEnd - position < kWindowBytes) return scanNumberRowPortable(text, numbers);
      marks = Wide::marksInWord(position, delimiter);
      window = position;
    }
    const char* const point = window + nextMark(marks);
    const char* const end = window + nextMark(marks);
    const bool negative = *position == '-';
    const std::ptrdiff_t wholeCount = point - position - negative;
    const std::ptrdiff_t fractionCount = end - point - 1;
    const std::ptrdiff_t digitCount = wholeCount + fractionCount;
    if (*point != '.' || wholeCount < 1 || fractionCount < 1 || fractionCount > kDigitsInVector ||
        (i + 1 < count && *end != text.delimiter)) {
      return scanNumberRowPortable(text, numbers);
    }
    row.leading[i] = 0;
    if (digitCount > kDigitsInVector) {
      const auto extra = static_cast<unsigned>(digitCount - kDigitsInVector);
      const std::uint64_t word = loadEightBytes(position + negative);
      if (extra > 3 || extra > wholeCount || leadingDigitCount(word) < extra) {
        return scanNumberRowPortable(text, numbers);
      }
      row.leading[i] = digitsValue(word, extra);
      row.hasLeading = true;
    }
    row.fours[i] =
        Wide::digitsBefore(end, std::min(digitCount, kDigitsInVector), fractionCount, bad);
    row.scales[i] = kExactPowersOf10[static_cast<std::size_t>(fractionCount)];
    row.signs[i] = static_cast<std::uint64_t>(negative) << 63;
    row.fractionCounts[i] = static_cast<int>(fractionCount);
    position = end + 1;
  }
  const char last = position[-1];
  if (last == '\r' && position < text.end) {
    position += *position == '\n';
  } else if (last != '\n' && last != '\r') {
    return scanNumberRowPortable(text, numbers);
  }
  if (!Wide::isNone(bad) || position > text.end) return scanNumberRowPortable(text, numbers);
  convert(row, numbers);
  return position;
}

/// Rows of two and of eight numbers, the product's own, have a body of their own.
template <class Wide>
OMBRIX_WIDE const char* scanRowOfAnyCount(const NumberRowText& text,
                                          std::span<double> numbers) noexcept {
  switch (numbers.size()) {
    case 2:
      return scanRow<Wide>(text, numbers.first<2>());
    case 8:
      return scanRow<Wide>(text, numbers.first<8>());
    default:
      return scanRow<Wide>(text, numbers);
  }
}

}  // namespace
}  // namespace ombrix::platform::detail

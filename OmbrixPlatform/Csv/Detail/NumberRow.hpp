#pragma once

// Private: reads rows of plain numbers from bytes.

#include <span>

namespace ombrix::platform::detail {

/// The text to scan for a row, and the bytes around it that may be loaded.
struct NumberRowText {
  const char* begin;          ///< The row's first byte.
  const char* end;            ///< One past the text's last byte; the row must end before it.
  const char* readableBegin;  ///< All bytes from here
  const char* readableEnd;    ///< to here may be loaded.
  char delimiter;
};

/// Reads a row of exactly `numbers.size()` plain numbers with its line end.
/// @return the byte after the line end; null when the row is not plain, not complete or too close
///   to the end of the readable bytes
const char* scanNumberRowPortable(const NumberRowText& text, std::span<double> numbers) noexcept;

/// Return the same, sixteen bytes at a time; only on x86-64 with SSE4.1, and only on 64-bit Arm.
const char* scanNumberRowSse41(const NumberRowText& text, std::span<double> numbers) noexcept;
const char* scanNumberRowNeon(const NumberRowText& text, std::span<double> numbers) noexcept;

using NumberRowScanner = const char* (*)(const NumberRowText&, std::span<double>) noexcept;

/// The best scanner for this processor.
NumberRowScanner fastestNumberRowScanner() noexcept;

}  // namespace ombrix::platform::detail

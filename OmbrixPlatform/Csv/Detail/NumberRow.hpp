#pragma once

// Private: rows of plain numbers, read from bytes.

#include <span>

namespace ombrix::platform::detail {

/// Where a row may lie.
struct NumberRowText {
  const char* begin;          ///< The row's first byte.
  const char* end;            ///< Behind the last byte of text; the row must end before.
  const char* readableBegin;  ///< All bytes from here
  const char* readableEnd;    ///< to here may be loaded.
  char delimiter;
};

/// Reads a row of exactly `numbers.size()` plain numbers with its line end.
/// @return the byte behind the line end; null when the row is not plain, not complete or too close
///         to the end of the readable bytes
const char* scanNumberRowPortable(const NumberRowText& text, std::span<double> numbers) noexcept;

/// The same answers or null more often; needs a processor with SSE4.1.
const char* scanNumberRowSse41(const NumberRowText& text, std::span<double> numbers) noexcept;

using NumberRowScanner = const char* (*)(const NumberRowText&, std::span<double>) noexcept;

/// The best scanner for this processor.
NumberRowScanner fastestNumberRowScanner() noexcept;

}  // namespace ombrix::platform::detail

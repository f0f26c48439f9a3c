#pragma once

#include <cstddef>
#include <string>

namespace ombrix::platform::detail {

/// Of a line in a log file, its line break included.
inline constexpr std::size_t kMaximumLogLineBytes = 64 * 1024;

/// Makes one line that everybody can read of what stands in `lines` from `start` on, and ends it.
///
/// Bytes that are not UTF-8 become U+FFFD; line breaks and other control characters, which could
/// begin a new line or command a terminal, are written as "\n", "\x1B", "\u{2028}"; of what is
/// longer than a line may be, the middle is left out and its place marked, so that the place in the
/// code at the line's end stays.
void finishLogLine(std::string& lines, std::size_t start);

}  // namespace ombrix::platform::detail

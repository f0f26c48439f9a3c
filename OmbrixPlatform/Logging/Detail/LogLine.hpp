#pragma once

#include <cstddef>
#include <string>

namespace ombrix::platform::detail {

/// The size limit of a line in a log file, including its line break.
inline constexpr std::size_t kMaximumLogLineBytes = 64 * 1024;

/// Makes a single readable line of the part of `lines` from `start` on, and ends it.
///
/// Invalid bytes become U+FFFD; line breaks and other control characters, which could begin a new
/// line or control a terminal, are written as "\n", "\x1B", "\u{2028}". In a line that is too long,
/// a mark replaces the middle, so that the end of the line, which names the place in the code,
/// stays.
void finishLogLine(std::string& lines, std::size_t start);

}  // namespace ombrix::platform::detail

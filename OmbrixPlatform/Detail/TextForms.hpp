#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform::detail {

void appendBase64(std::string& out, DataView bytes);

/// Decodes base64 text; white space is skipped only if allowed, and padding must be complete. Empty
/// for any other text.
std::optional<Data> bytesFromBase64(std::string_view text, bool allowWhiteSpace);

/// "YYYY-MM-DDTHH:MM:SSZ", fractions of a second truncated; empty for a date that is not finite or
/// outside the years 0 to 9999.
std::string iso8601Text(Date date);

/// Reads "YYYY-MM-DDTHH:MM:SS", an optional fraction, and "Z" or an offset such as "+01:00".
std::optional<Date> dateFromISO8601(std::string_view text);

}  // namespace ombrix::platform::detail

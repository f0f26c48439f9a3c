#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// Reads a date of a header field in any of the three forms of RFC 9110 section 5.6.7, independent
/// of the process's locale. The day of the week is not checked against the date. Empty for other
/// text, and for dates that do not exist.
///
/// @param now A year of two digits that seems to be more than 50 years after this date is in the
///   past.
std::optional<Date> dateFromHTTPText(std::string_view text, Date now);

/// The date as header fields state it, "Sun, 06 Nov 1994 08:49:37 GMT"; fractions of a second and
/// years outside 0 … 9999 are cut off.
std::string httpTextFrom(Date date);

}  // namespace ombrix::platform

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// Reads a date of a header field in any of the three forms of RFC 9110 section 5.6.7, whatever the
/// process's locale. The day of the week is not held against the date. Nothing for other text, and
/// for times that no calendar has.
///
/// @param now A year of two digits that seems more than 50 years after it is one of the past.
std::optional<Date> dateFromHTTPText(std::string_view text, Date now);

/// The date as header fields have it, "Sun, 06 Nov 1994 08:49:37 GMT"; fractions of a second and
/// years outside 0 … 9999 are cut off.
std::string httpTextFrom(Date date);

}  // namespace ombrix::platform

#ifndef OMBRIXC_OMBRIX_DATE_H
#define OMBRIXC_OMBRIX_DATE_H

#include <stdbool.h>

#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

// Comparisons of two dates, in seconds since 1970. A date that is not a number counts as equal to
// every other.

/// Whether a date is later than another one.
bool ombrix_NSDate_isLaterThan_(double self, double other);
/// Whether a date is earlier than another one.
bool ombrix_NSDate_isEarlierThan_(double self, double other);
/// Whether a date is not earlier than another one.
bool ombrix_NSDate_isLaterThanOrEqualTo_(double self, double other);
/// Whether a date is not later than another one.
bool ombrix_NSDate_isEarlierThanOrEqualTo_(double self, double other);

/// Writes and reads points in time by a pattern; never changes.
typedef struct OmbrixDateFormatter OmbrixDateFormatter;

/// A formatter, which the caller owns.
/// @param dateFormat A pattern as Unicode's locale data defines it, as in "yyyy-MM-dd HH:mm".
/// @param locale As in "en_US"; NULL for the current one.
/// @param timeZone As in "Europe/Zurich", NULL for the system's; an unknown name means UTC.
OmbrixDateFormatter* ombrix_DateFormatter_initWithDateFormat_locale_timeZone_(
    const char* dateFormat, const char* locale, const char* timeZone);

/// Gives a formatter back; NULL is allowed.
void ombrix_DateFormatter_release(OmbrixDateFormatter* self);

/// The text of a date in seconds since 1970, empty for a number that is not a date; the caller owns
/// the copy.
char* ombrix_DateFormatter_stringFromDate_(const OmbrixDateFormatter* self, double date);

/// Reads a date into `date`, seconds since 1970; false and an error for a text that does not follow
/// the pattern.
bool ombrix_DateFormatter_dateFromString_error_(const OmbrixDateFormatter* self, const char* string,
                                                double* date, OmbrixError** error);

#ifdef __cplusplus
}
#endif

#endif

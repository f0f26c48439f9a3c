#ifndef OMBRIXC_OMBRIX_DATE_H
#define OMBRIXC_OMBRIX_DATE_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Comparisons of two dates, in seconds since 1970. A date that is not a number counts as equal to
/// every other.
bool ombrix_NSDate_isLaterThan_(double self, double other);
bool ombrix_NSDate_isEarlierThan_(double self, double other);
bool ombrix_NSDate_isLaterThanOrEqualTo_(double self, double other);
bool ombrix_NSDate_isEarlierThanOrEqualTo_(double self, double other);

#ifdef __cplusplus
}
#endif

#endif

#ifndef OMBRIXC_OMBRIX_ERROR_H
#define OMBRIXC_OMBRIX_ERROR_H

#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// An error that a throwing operation hands out through its trailing `error` parameter. The caller
/// owns it and gives it back with `ombrix_Error_release`. A caller that does not need the error
/// passes NULL. An error never changes.
typedef struct OmbrixError OmbrixError;

/// A readable sentence in UTF-8, or for a failed request the name of its case; borrowed until the
/// error is released. Empty for NULL.
const char* ombrix_Error_message(const OmbrixError* error);

/// The name of a failed request's case, as in "resourceNotFoundError"; lives as long as the
/// process. NULL for another error, and for NULL.
const char* ombrix_Error_httpCase(const OmbrixError* error);

/// The HTTP status of a failed request, or -1 (no HTTP answer), -2 (refused by Low Data Mode), -3
/// (cancelled here) or 400 (no request could be built). 0 for another error, and for NULL.
int ombrix_Error_httpStatus(const OmbrixError* error);

/// The body of the answer with which a request failed; the caller owns the copy. No bytes if there
/// was no answer, and for NULL.
OmbrixData ombrix_Error_httpBody(const OmbrixError* error);

/// Releases an error; NULL is allowed.
void ombrix_Error_release(OmbrixError* error);

#ifdef __cplusplus
}
#endif

#endif

#ifndef OMBRIXC_OMBRIX_ERROR_H
#define OMBRIXC_OMBRIX_ERROR_H

#ifdef __cplusplus
extern "C" {
#endif

/// An error that a throwing operation hands out through its trailing `error` parameter.
/// The caller owns it and gives it back with `ombrix_Error_release`. Passing NULL for the
/// parameter means that the caller does not want to know.
typedef struct OmbrixError OmbrixError;

/// A readable sentence in UTF-8, valid until the error is released.
const char* ombrix_Error_message(const OmbrixError* error);

/// Releases an error; NULL is allowed.
void ombrix_Error_release(OmbrixError* error);

#ifdef __cplusplus
}
#endif

#endif

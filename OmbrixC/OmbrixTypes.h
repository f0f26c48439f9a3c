#ifndef OMBRIXC_OMBRIX_TYPES_H
#define OMBRIXC_OMBRIX_TYPES_H

/// \file
/// What every header of the C interface shares.
///
/// - A function is named after the class and the selector it stands for: ':' becomes '_', and the
///   class loses its prefix `Ombrix`. Class methods have no receiver, the others take it first.
/// - An object is an opaque handle, `typedef struct OmbrixThing OmbrixThing;`. A caller owns
///   what a function named init, new or copy gave, and returns it with `ombrix_Thing_release`,
///   which allows NULL. Shared objects are borrowed and never released.
/// - Text goes in as UTF-8 ending in NUL and is borrowed for the call. It comes out as a copy,
///   which the caller gives back with `ombrix_String_release`; NULL means that there is none.
/// - A throwing operation takes a trailing `OmbrixError **error`; see OmbrixError.h.
/// - Nothing throws across this interface.

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Gives back a text that a function of this interface returned; NULL is allowed.
void ombrix_String_release(char* string);

/// The text as part of a file name: in ASCII where that is possible, without newlines, symbols and
/// other characters that file names should not hold. It may be empty. Any thread.
char* ombrix_String_sanitizedFileName(const char* self);

/// A block of bytes that a function of this interface returned. `bytes` is NULL when there is none,
/// and not NULL for an empty block.
typedef struct OmbrixData {
  uint8_t* bytes;
  size_t length;
} OmbrixData;

/// Gives a block of bytes back.
void ombrix_Data_release(OmbrixData data);

#ifdef __cplusplus
}
#endif

#endif

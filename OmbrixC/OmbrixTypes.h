#ifndef OMBRIXC_OMBRIX_TYPES_H
#define OMBRIXC_OMBRIX_TYPES_H

/// \file Definitions and rules shared by all headers of the C interface.
///
/// - A function is named after the class and the selector it stands for: ':' becomes '_', and the
///   class loses its prefix `Ombrix`. Class methods have no receiver, the others take it first.
/// - An object is an opaque handle, `typedef struct OmbrixThing OmbrixThing;`. A caller owns
///   what a function named init, new or copy gave, and returns it with `ombrix_Thing_release`,
///   which allows NULL. Shared objects are borrowed and never released.
/// - Text arguments are UTF-8 ending in NUL, borrowed for the call; NULL is the empty text. A
///   returned text is a copy, which the caller gives back with `ombrix_String_release`; NULL means
///   that there is none, or no memory for it. A returned `const char*` is borrowed.
/// - Receivers (`self`) and structs must not be NULL unless a function allows it. Do not use an
///   object after releasing it.
/// - Any thread may call any function, unless a type says that it serves one thread at a time.
/// - A throwing operation takes a trailing `OmbrixError **error`; see OmbrixError.h. Others have no
///   errors: where memory runs out they give NULL, false or 0.
/// - Bad arguments give an error or an empty result. Where it says "stops the program", a
/// programming mistake instead writes the reason to standard error and calls `abort`.
/// - Nothing throws across this interface. Lengths and counts are in bytes or items, times in
///   seconds since 1970-01-01 UTC, places in degrees, lengths in metres.

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Gives back a text that a function of this interface returned; NULL is allowed.
void ombrix_String_release(char* string);

/// The text as part of a file name: in ASCII where possible, without newlines, symbols and other
/// characters that file names should not contain. It may be empty. The caller owns the copy.
char* ombrix_String_sanitizedFileName(const char* self);

/// A block of bytes that a function of this interface returned. `bytes` is NULL when there is none,
/// and not NULL for an empty block.
typedef struct OmbrixData {
  uint8_t* bytes;
  size_t length;
} OmbrixData;

/// Gives a block of bytes back; a block without bytes is allowed.
void ombrix_Data_release(OmbrixData data);

#ifdef __cplusplus
}
#endif

#endif

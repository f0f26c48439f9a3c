#ifndef OMBRIXC_OMBRIX_STREAMS_H
#define OMBRIXC_OMBRIX_STREAMS_H

#include <stdbool.h>

#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A source of bytes made by the caller. The functions are called by one thread at a time.
typedef struct OmbrixInputStream {
  /// Handed back with every call.
  void* context;
  /// Puts at most `length` bytes into `buffer`, waiting for the first one. Returns how many: 0 at
  /// the end, a negative number for a failure.
  ptrdiff_t (*read)(void* context, uint8_t* buffer, size_t length);
} OmbrixInputStream;

/// A sink of bytes. The functions are called by one thread at a time.
typedef struct OmbrixOutputStream {
  /// Handed back with every call.
  void* context;
  /// Takes all the bytes, which are borrowed for the call; false for a failure.
  bool (*write)(void* context, const uint8_t* bytes, size_t length);
} OmbrixOutputStream;

#ifdef __cplusplus
}
#endif

#endif

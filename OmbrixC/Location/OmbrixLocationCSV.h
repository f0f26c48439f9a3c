#ifndef OMBRIXC_OMBRIX_LOCATION_CSV_H
#define OMBRIXC_OMBRIX_LOCATION_CSV_H

#include "OmbrixC/Location/OmbrixLocation.h"
#include "OmbrixC/Location/OmbrixStreams.h"
#include "OmbrixC/OmbrixError.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Fixes that a function of this interface returned. `locations` is NULL when there is no list, and
/// not NULL for an empty one.
typedef struct OmbrixLocations {
  OmbrixLocation* locations;
  size_t count;
} OmbrixLocations;

/// Gives a list of fixes back.
void ombrix_Locations_release(OmbrixLocations locations);

/// Takes the list, which the callee owns and gives back, on the parsers' queue.
typedef void (*OmbrixLocationsCompletion)(OmbrixLocations locations, void* context);

/// Reads recorded tracks; any number of threads may share a parser. No list means that the source
/// could not be opened or read at all. That is logged, and so is every row that is skipped. Where
/// memory runs out, the list holds as many fixes from the beginning as fit; that is logged, too.
typedef struct OmbrixLocationCSVParser OmbrixLocationCSVParser;

/// A parser, which the caller owns; NULL where memory runs out.
OmbrixLocationCSVParser* ombrix_LocationCSVParser_init(void);
/// Gives a parser back; NULL is allowed, also while it parses on the queue.
void ombrix_LocationCSVParser_release(OmbrixLocationCSVParser* self);

/// Reads the file of a file URL, as `ombrix_URL_fileURLWithPath_` gives it; another text gives no
/// list, as a missing file does. The caller owns the list.
OmbrixLocations ombrix_LocationCSVParser_parseWithUrl_(const OmbrixLocationCSVParser* self,
                                                       const char* url);
/// The same for a text, UTF-8 ending in NUL.
OmbrixLocations ombrix_LocationCSVParser_parseWithString_(const OmbrixLocationCSVParser* self,
                                                          const char* string);
/// The same for a stream, borrowed for the call and read on the calling thread to its end. No list
/// when its first read fails.
OmbrixLocations ombrix_LocationCSVParser_parseWithStream_(const OmbrixLocationCSVParser* self,
                                                          OmbrixInputStream stream);
/// The same for bytes, borrowed for the call; NULL is allowed where `length` is 0.
OmbrixLocations ombrix_LocationCSVParser_parseWithData_(const OmbrixLocationCSVParser* self,
                                                        const uint8_t* bytes, size_t length);

/// Reads as without a completion, but on the parsers' queue, and calls the completion once there;
/// on the calling thread if the work cannot begin. The completion must not be NULL.
void ombrix_LocationCSVParser_parseWithUrl_completion_(const OmbrixLocationCSVParser* self,
                                                       const char* url,
                                                       OmbrixLocationsCompletion completion,
                                                       void* context);
/// The same for a text, which is copied.
void ombrix_LocationCSVParser_parseWithString_completion_(const OmbrixLocationCSVParser* self,
                                                          const char* string,
                                                          OmbrixLocationsCompletion completion,
                                                          void* context);
/// The same for a stream, borrowed until the completion has been called.
void ombrix_LocationCSVParser_parseWithStream_completion_(const OmbrixLocationCSVParser* self,
                                                          OmbrixInputStream stream,
                                                          OmbrixLocationsCompletion completion,
                                                          void* context);
/// The same for bytes, which are copied.
void ombrix_LocationCSVParser_parseWithData_completion_(const OmbrixLocationCSVParser* self,
                                                        const uint8_t* bytes, size_t length,
                                                        OmbrixLocationsCompletion completion,
                                                        void* context);

/// Appends fixes to a track file or a stream. One thread at a time.
typedef struct OmbrixLocationCSVWriter OmbrixLocationCSVWriter;

/// Not available: stops the program.
OmbrixLocationCSVWriter* ombrix_LocationCSVWriter_init(void);

/// Opens the file of a file URL for appending, or makes it. NULL and an error, which names the file
/// or the text, when that fails or the text is not a file URL. The caller owns the writer.
OmbrixLocationCSVWriter* ombrix_LocationCSVWriter_initWithUrl_error_(const char* url,
                                                                     OmbrixError** error);

/// Writes to a stream, which is borrowed as long as the writer lives. The caller owns the writer.
OmbrixLocationCSVWriter* ombrix_LocationCSVWriter_initWithStream_error_(OmbrixOutputStream stream,
                                                                        OmbrixError** error);
/// Closes the file and gives the writer back; NULL is allowed. The system has all added rows
/// already.
void ombrix_LocationCSVWriter_release(OmbrixLocationCSVWriter* self);

/// False and an error when the stream does not take a row; rows already written stay, and
/// `fixesWritten` tells how many there are. The next fix is tried again: a file then ends with its
/// last whole row, so the fixes after it can be added again. The caller's own stream does not tell
/// how much it took before it failed: the rows of that call count as not taken, and the next fix
/// starts a new line after one that ends in "?", which no parser takes.
bool ombrix_LocationCSVWriter_addLocation_error_(OmbrixLocationCSVWriter* self,
                                                 const OmbrixLocation* location,
                                                 OmbrixError** error);
/// The same for several fixes in their order, handed to the stream together; NULL is allowed
/// where `count` is 0.
bool ombrix_LocationCSVWriter_addLocations_error_(OmbrixLocationCSVWriter* self,
                                                  const OmbrixLocation* locations, size_t count,
                                                  OmbrixError** error);

/// How many whole fixes the stream has taken since the writer was made.
uint64_t ombrix_LocationCSVWriter_fixesWritten(const OmbrixLocationCSVWriter* self);

/// Waits until all fixes so far survive a loss of power; false and an error when that cannot be
/// promised, as for the caller's own stream.
bool ombrix_LocationCSVWriter_sync_(OmbrixLocationCSVWriter* self, OmbrixError** error);

/// The stream that the writer writes to, borrowed from the writer.
OmbrixOutputStream ombrix_LocationCSVWriter_stream(const OmbrixLocationCSVWriter* self);

#ifdef __cplusplus
}
#endif

#endif

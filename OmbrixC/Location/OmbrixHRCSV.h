#ifndef OMBRIXC_OMBRIX_HR_CSV_H
#define OMBRIXC_OMBRIX_HR_CSV_H

#include "OmbrixC/Location/OmbrixStreams.h"

#ifdef __cplusplus
extern "C" {
#endif

/// One heart-rate sample: beats per minute, and seconds since 1970.
typedef struct OmbrixHeartRateSample {
  double countPerMinute;
  double startDate;
  double endDate;
} OmbrixHeartRateSample;

/// Samples that a function of this interface returned. `samples` is NULL when there is no list, and
/// not NULL for an empty one.
typedef struct OmbrixHeartRateSamples {
  OmbrixHeartRateSample* samples;
  size_t count;
} OmbrixHeartRateSamples;

/// Gives a list of samples back.
void ombrix_HeartRateSamples_release(OmbrixHeartRateSamples samples);

/// Takes the list, which the callee owns and gives back, on the parsers' queue.
typedef void (*OmbrixHeartRateSamplesCompletion)(OmbrixHeartRateSamples samples, void* context);

/// Reads heart-rate recordings; any number of threads may share a parser. No list means that the
/// source could not be opened or read at all. That is logged, and so is every row that is skipped.
/// Where memory runs out, the list holds as many samples from the beginning as fit; that is logged,
/// too. A row with fewer than two fields stops the program.
typedef struct OmbrixHRCSVParser OmbrixHRCSVParser;

/// A parser, which the caller owns; NULL where memory runs out.
OmbrixHRCSVParser* ombrix_HRCSVParser_init(void);
/// Gives a parser back; NULL is allowed, also while it parses on the queue.
void ombrix_HRCSVParser_release(OmbrixHRCSVParser* self);

/// Reads the file of a file URL, as `ombrix_URL_fileURLWithPath_` gives it; another text gives no
/// list, as a missing file does. The caller owns the list.
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithUrl_(const OmbrixHRCSVParser* self,
                                                        const char* url);
/// The same for a text, UTF-8 ending in NUL.
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithString_(const OmbrixHRCSVParser* self,
                                                           const char* string);
/// The same for a stream, borrowed for the call and read on the calling thread to its end. No list
/// when its first read fails.
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithStream_(const OmbrixHRCSVParser* self,
                                                           OmbrixInputStream stream);
/// The same for bytes, borrowed for the call; NULL is allowed where `length` is 0.
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithData_(const OmbrixHRCSVParser* self,
                                                         const uint8_t* bytes, size_t length);

/// Reads as without a completion, but on the parsers' queue, and calls the completion once there;
/// on the calling thread if the work cannot begin. The completion must not be NULL.
void ombrix_HRCSVParser_parseWithUrl_completion_(const OmbrixHRCSVParser* self, const char* url,
                                                 OmbrixHeartRateSamplesCompletion completion,
                                                 void* context);
/// The same for a text, which is copied.
void ombrix_HRCSVParser_parseWithString_completion_(const OmbrixHRCSVParser* self,
                                                    const char* string,
                                                    OmbrixHeartRateSamplesCompletion completion,
                                                    void* context);
/// The same for a stream, borrowed until the completion has been called.
void ombrix_HRCSVParser_parseWithStream_completion_(const OmbrixHRCSVParser* self,
                                                    OmbrixInputStream stream,
                                                    OmbrixHeartRateSamplesCompletion completion,
                                                    void* context);
/// The same for bytes, which are copied.
void ombrix_HRCSVParser_parseWithData_completion_(const OmbrixHRCSVParser* self,
                                                  const uint8_t* bytes, size_t length,
                                                  OmbrixHeartRateSamplesCompletion completion,
                                                  void* context);

#ifdef __cplusplus
}
#endif

#endif

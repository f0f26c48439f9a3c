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
/// source could not be opened or read at all, which is logged, as is every row that is skipped.
/// Where memory runs out, the list holds as many samples of the beginning as fit, which is logged,
/// too. A row with fewer than two fields stops the program.
typedef struct OmbrixHRCSVParser OmbrixHRCSVParser;

OmbrixHRCSVParser* ombrix_HRCSVParser_init(void);
void ombrix_HRCSVParser_release(OmbrixHRCSVParser* self);

/// `url` is the text of a file URL; one that is none gives no list, as a missing file does. A
/// stream is borrowed for the call, or until the completion has been called.
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithUrl_(const OmbrixHRCSVParser* self,
                                                        const char* url);
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithString_(const OmbrixHRCSVParser* self,
                                                           const char* string);
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithStream_(const OmbrixHRCSVParser* self,
                                                           OmbrixInputStream stream);
OmbrixHeartRateSamples ombrix_HRCSVParser_parseWithData_(const OmbrixHRCSVParser* self,
                                                         const uint8_t* bytes, size_t length);

void ombrix_HRCSVParser_parseWithUrl_completion_(const OmbrixHRCSVParser* self, const char* url,
                                                 OmbrixHeartRateSamplesCompletion completion,
                                                 void* context);
void ombrix_HRCSVParser_parseWithString_completion_(const OmbrixHRCSVParser* self,
                                                    const char* string,
                                                    OmbrixHeartRateSamplesCompletion completion,
                                                    void* context);
void ombrix_HRCSVParser_parseWithStream_completion_(const OmbrixHRCSVParser* self,
                                                    OmbrixInputStream stream,
                                                    OmbrixHeartRateSamplesCompletion completion,
                                                    void* context);
void ombrix_HRCSVParser_parseWithData_completion_(const OmbrixHRCSVParser* self,
                                                  const uint8_t* bytes, size_t length,
                                                  OmbrixHeartRateSamplesCompletion completion,
                                                  void* context);

#ifdef __cplusplus
}
#endif

#endif

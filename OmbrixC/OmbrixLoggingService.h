#ifndef OMBRIXC_OMBRIX_LOGGING_SERVICE_H
#define OMBRIXC_OMBRIX_LOGGING_SERVICE_H

#include <stdbool.h>
#include <stdint.h>

#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The process's logging: a file log of five weeks, the system's log, and the switch for extra
/// logging. All operations may be called from any thread.
typedef struct OmbrixLoggingService OmbrixLoggingService;

/// The one instance, borrowed. The first use sets logging up.
OmbrixLoggingService* ombrix_LoggingService_sharedInstance(void);

/// Whether debug and verbose messages are logged as well.
bool ombrix_LoggingService_extraLoggingEnabled(const OmbrixLoggingService* self);

/// Stores the switch in the settings and sets the level of all loggers accordingly.
void ombrix_LoggingService_setExtraLoggingEnabled_(OmbrixLoggingService* self, bool isEnabled);

/// A destination of log lines made by the caller.
typedef struct OmbrixLogger {
  /// Handed back with every call.
  void* context;
  /// Takes one line, without a line break and borrowed for the call, and the message's flag:
  /// 1 error, 2 warning, 4 info, 8 debug, 16 verbose. Called on the thread that logs, from several
  /// threads at once; must not log.
  void (*log)(void* context, uint32_t flag, const char* line);
  /// Called when all lines logged so far should be written out; may be NULL.
  void (*flush)(void* context);
} OmbrixLogger;

/// Adds a logger for the rest of the process; it gets the same lines as the log files, at the level
/// that is set. The struct is copied; a logger without `log` is ignored.
void ombrix_LoggingService_attachLogger_(OmbrixLoggingService* self, OmbrixLogger logger);

/// The contents of up to 10 log files, from the oldest to the newest; no bytes when there is no
/// file logger.
OmbrixData ombrix_LoggingService_historicalLog(const OmbrixLoggingService* self);

/// The same as text, cut at the first NUL; NULL also when it is not valid UTF-8.
char* ombrix_LoggingService_historicalLogText(const OmbrixLoggingService* self);

#ifdef __cplusplus
}
#endif

#endif

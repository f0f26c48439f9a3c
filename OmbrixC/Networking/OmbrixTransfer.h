#ifndef OMBRIXC_NETWORKING_OMBRIX_TRANSFER_H
#define OMBRIXC_NETWORKING_OMBRIX_TRANSFER_H

#include "OmbrixC/Networking/OmbrixServerAPI.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A file on its way to or from the web service. Any thread.
typedef struct OmbrixTransfer OmbrixTransfer;

/// How far a transfer is, in bytes; an expected count that is not known is -1. Called on a thread
/// of the client's; calls may be merged.
typedef void (*OmbrixTransferProgress)(int64_t sent, int64_t expectedToSend, int64_t received,
                                       int64_t expectedToReceive, void* context);

/// Sends the file of a file URL, read in pieces, and calls the completion once on a thread of the
/// client's, unless it is cancelled; the context goes to both.
///
/// @param url An absolute URL, or a path below the base URL.
/// @param method As in "PUT"; another text fails with an error.
/// @param progress NULL for none, as the completion.
/// @return A handle that the caller owns; the transfer goes on when it is released. NULL if it
/// could
///   not begin because `fileUrl` is no file URL; the completion is told of that as well.
OmbrixTransfer* ombrix_ServerAPI_uploadFile_toUrl_method_progress_completion_context_(
    OmbrixServerAPI* self, const char* fileUrl, const char* url, const char* method,
    OmbrixTransferProgress progress, OmbrixServerAPICompletion completion, void* context);

/// Writes the answer into the file of a file URL, which is there when it is whole and not before.
/// The download goes on where a broken one has stopped ("NAME.part"). The body that the completion
/// gets is empty. Otherwise as an upload.
OmbrixTransfer* ombrix_ServerAPI_downloadUrl_toFile_progress_completion_context_(
    OmbrixServerAPI* self, const char* url, const char* fileUrl, OmbrixTransferProgress progress,
    OmbrixServerAPICompletion completion, void* context);

/// Ends a transfer; its completion is not called, unless it is on its way on another thread.
void ombrix_Transfer_cancel(OmbrixTransfer* self);
/// Gives the handle back; NULL is allowed.
void ombrix_Transfer_release(OmbrixTransfer* self);

/// When requests that failed are made once more: those with an idempotent method. Seconds.
typedef struct OmbrixRetryPolicy {
  int maximumAttempts;       ///< The first one included; below 2: no retry.
  double firstDelay;         ///< The pause before retry n is a random part of this times 2^(n-1),
  double longestDelay;       ///< at most of this,
  double longestRetryAfter;  ///< and as long as the server says, which may be this.
  double totalTime;          ///< No attempt begins later than this after the first one.
  double budget;             ///< Retries that requests share; each success gives a tenth back.
} OmbrixRetryPolicy;

/// The policy that suits most callers: 3 attempts, 0.5 s, 20 s, 60 s, 120 s, a budget of 10.
OmbrixRetryPolicy ombrix_RetryPolicy_usual(void);

/// Has requests from now on made again by a policy, which is copied; NULL for never, as at first.
/// Other policies that C++ code has set are dropped.
void ombrix_ServerAPI_setRetryPolicy_(OmbrixServerAPI* self, const OmbrixRetryPolicy* policy);

#ifdef __cplusplus
}
#endif

#endif

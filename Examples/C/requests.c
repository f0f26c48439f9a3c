/* Requests to the product's web service. The argument is the URL that `ombrix serve` prints.

prints:
resorts: 200
nothing: 404, resourceNotFoundError
Sorry it looks like that link isn't valid.
FETCH: 400, badRequestError
The request was malformed. Please contact support for further assistance.
upload: 200
file sent: 200
file fetched: 200, some bytes
no file: 400, badRequestError
The request was malformed. Please contact support for further assistance.
*/
#include <OmbrixC/OmbrixC.h>
#include <stdio.h>
#include <stdlib.h>
#include <threads.h>

/* What a completion leaves for the thread that waits for it. */
typedef struct Answer {
  mtx_t mutex;
  cnd_t isThere;
  bool isDone;
  const char* name;
} Answer;

static void finish(Answer* answer) {
  mtx_lock(&answer->mutex);
  answer->isDone = true;
  cnd_signal(&answer->isThere);
  mtx_unlock(&answer->mutex);
}

static void onAnswer(bool success, int code, const uint8_t* body, size_t length,
                     const OmbrixError* error, void* context) {
  Answer* answer = context;
  (void)body;
  (void)length;
  if (success) {
    printf("%s: %d\n", answer->name, code);
  } else {
    char* text = ombrix_ServerAPI_errorMessageForError_(error);
    printf("%s: %d, %s\n%s\n", answer->name, code, ombrix_Error_httpCase(error), text);
    ombrix_String_release(text);
  }
  finish(answer);
}

static void onFetched(bool success, int code, const uint8_t* body, size_t length,
                      const OmbrixError* error, void* context) {
  if (!success) {
    onAnswer(success, code, body, length, error, context);
    return;
  }
  Answer* answer = context;
  printf("%s: %d", answer->name, code);
  finish(answer);
}

static void onOperation(bool success, int code, const uint8_t* body, size_t length, void* context) {
  onAnswer(success, code, body, length, NULL, context);
}

static void await(Answer* answer) {
  mtx_lock(&answer->mutex);
  while (!answer->isDone) cnd_wait(&answer->isThere, &answer->mutex);
  answer->isDone = false;
  mtx_unlock(&answer->mutex);
}

int main(int count, char** arguments) {
  if (count < 2) return 2;
  OmbrixServerAPI* api = ombrix_ServerAPI_sharedInstance();
  if (!ombrix_ServerAPI_setProduction_staging_development_(api, arguments[1], arguments[1],
                                                           arguments[1])) {
    return 2;
  }
  ombrix_ServerAPI_changeTo_(OmbrixAPIEndpointDevelopment);

  Answer answer = {.isDone = false};
  mtx_init(&answer.mutex, mtx_plain);
  cnd_init(&answer.isThere);
  const char* const requests[][3] = {{"resorts", "resorts", "GET"},
                                     {"nothing", "nothing/here", "GET"},
                                     {"FETCH", "resorts", "FETCH"}};
  for (size_t i = 0; i < 3; ++i) {
    answer.name = requests[i][0];
    char* id = ombrix_ServerAPI_requestWithUrl_method_disableCache_payload_completion_context_(
        api, requests[i][1], requests[i][2], false, (OmbrixPayload){NULL, 0}, onAnswer, &answer);
    ombrix_String_release(id);
    await(&answer);
  }

  static const uint8_t bytes[] = "{\"runs\":12}";
  answer.name = "upload";
  OmbrixAPIHttpRequestOperation* operation =
      ombrix_APIHttpRequestOperation_initWithUrl_method_headers_callback_("echo", "POST", NULL, 0,
                                                                          onOperation, &answer);
  ombrix_APIHttpRequestOperation_setPayload_(operation, (OmbrixPayload){bytes, sizeof bytes - 1});
  ombrix_ServerAPI_addOperation_(api, operation);
  ombrix_APIHttpRequestOperation_release(operation);
  await(&answer);

  /* Files, with a policy that makes failed requests once more. The home folder is ours. */
  const OmbrixRetryPolicy policy = ombrix_RetryPolicy_usual();
  ombrix_ServerAPI_setRetryPolicy_(api, &policy);
  char path[4096];
  snprintf(path, sizeof path, "%s/sent.json", getenv("HOME"));
  FILE* file = fopen(path, "w");
  fputs("{\"runs\":12}", file);
  fclose(file);
  char* url = ombrix_URL_fileURLWithPath_(path);
  answer.name = "file sent";
  OmbrixTransfer* transfer = ombrix_ServerAPI_uploadFile_toUrl_method_progress_completion_context_(
      api, url, "echo", "PUT", NULL, onAnswer, &answer);
  await(&answer);
  ombrix_Transfer_release(transfer);
  ombrix_String_release(url);

  snprintf(path, sizeof path, "%s/fetched.json", getenv("HOME"));
  url = ombrix_URL_fileURLWithPath_(path);
  answer.name = "file fetched";
  transfer = ombrix_ServerAPI_downloadUrl_toFile_progress_completion_context_(
      api, "resorts", url, NULL, onFetched, &answer);
  await(&answer);
  ombrix_Transfer_release(transfer);
  file = fopen(path, "r");
  printf(", %s bytes\n", file != NULL && fgetc(file) != EOF ? "some" : "no");
  if (file != NULL) fclose(file);
  ombrix_String_release(url);

  /* A completion is never called by the call itself: it may take a lock that the caller holds. */
  answer.name = "no file";
  mtx_lock(&answer.mutex);
  transfer = ombrix_ServerAPI_uploadFile_toUrl_method_progress_completion_context_(
      api, "not a URL", "echo", "PUT", NULL, onAnswer, &answer);
  mtx_unlock(&answer.mutex);
  await(&answer);
  ombrix_Transfer_release(transfer);

  ombrix_Library_end();
  cnd_destroy(&answer.isThere);
  mtx_destroy(&answer.mutex);
  return ombrix_Library_liveHandles() == 0 ? 0 : 1;
}

#include "OmbrixC/Networking/OmbrixTransfer.h"

#include <filesystem>
#include <utility>

#include "OmbrixC/Detail/HTTPErrors.hpp"
#include "OmbrixC/Networking/Detail/Requests.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"

struct OmbrixTransfer {
  ombrix::platform::Task<void> task;
  ombrix::c::Handle handle = {};
};

namespace {

namespace c = ombrix::c;
namespace platform = ombrix::platform;
using Client = ombrix::OmbrixServerAPI;
using ombrix::HTTPAnswer;
using ombrix::HTTPError;
using ombrix::HTTPProgress;
using ombrix::RequestOptions;
using platform::Async;

/// Whom a C caller wants told.
struct Caller {
  OmbrixTransferProgress progress;
  OmbrixServerAPICompletion completion;
  void* context;

  void succeed(const HTTPAnswer& answer) const {
    if (completion == nullptr) return;
    completion(true, answer.code, c::bytesFrom(answer.data), answer.data.size(), nullptr, context);
  }

  void fail(const HTTPError& error) const {
    if (completion == nullptr) return;
    const OmbrixError given{error.what(), std::make_exception_ptr(error)};
    completion(false, c::statusOf(error), nullptr, 0, &given, context);
  }

  [[nodiscard]] RequestOptions options() const {
    RequestOptions options;
    if (progress != nullptr) {
      options.progress = [tell = progress, to = context](const HTTPProgress& bytes) {
        tell(bytes.bytesSent, bytes.bytesExpectedToSend, bytes.bytesReceived,
             bytes.bytesExpectedToReceive, to);
      };
    }
    return options;
  }
};

/// Tells the caller what became of a transfer; nothing where it was cancelled.
Async<void> told(Async<HTTPAnswer> transfer, Caller caller) {
  std::optional<HTTPError> failure;
  try {
    const HTTPAnswer answer = co_await std::move(transfer);
    caller.succeed(answer);
  } catch (const HTTPError& error) {
    failure = error;
  } catch (const platform::CancellationError&) {
  } catch (const std::exception&) {
    failure = HTTPError::unknown();
  }
  if (failure && failure->kind() != HTTPError::Case::canceled) caller.fail(*failure);
}

/// Starts what `begin` makes of the path of a file. Failures are told on the queue as well: the
/// caller may hold a lock that its completion takes.
template <class Begin>
OmbrixTransfer* started(const char* fileUrl, const Caller& caller, Begin begin) {
  auto* transfer = c::catching(nullptr, [&]() -> OmbrixTransfer* {
    const std::filesystem::path file = c::fileURLFrom(fileUrl).path();
    Async<HTTPAnswer> work = begin(file);
    return new OmbrixTransfer{told(std::move(work), caller).start()};
  });
  if (transfer == nullptr) {
    c::catching(nullptr, [&] {
      Client::dispatchQueue()->async([caller] { caller.fail(HTTPError::badRequestError()); });
    });
  }
  return transfer;
}

Client& from(OmbrixServerAPI* self) { return *reinterpret_cast<Client*>(self); }

}  // namespace

OmbrixTransfer* ombrix_ServerAPI_uploadFile_toUrl_method_progress_completion_context_(
    OmbrixServerAPI* self, const char* fileUrl, const char* url, const char* method,
    OmbrixTransferProgress progress, OmbrixServerAPICompletion completion, void* context) {
  const Caller caller{progress, completion, context};
  return started(fileUrl, caller, [&](const std::filesystem::path& file) {
    const auto verb = c::methodFrom(method);
    if (!verb) throw HTTPError::badRequestError();
    return from(self).upload(c::textFrom(url), file, *verb, caller.options());
  });
}

OmbrixTransfer* ombrix_ServerAPI_downloadUrl_toFile_progress_completion_context_(
    OmbrixServerAPI* self, const char* url, const char* fileUrl, OmbrixTransferProgress progress,
    OmbrixServerAPICompletion completion, void* context) {
  const Caller caller{progress, completion, context};
  return started(fileUrl, caller, [&](const std::filesystem::path& file) {
    return from(self).download(c::textFrom(url), file, caller.options());
  });
}

void ombrix_Transfer_cancel(OmbrixTransfer* self) {
  c::catching(nullptr, [&] { self->task.cancel(); });
}
void ombrix_Transfer_release(OmbrixTransfer* self) { delete self; }

OmbrixRetryPolicy ombrix_RetryPolicy_usual() {
  constexpr double kUsualBudget = 10;  // of RetryBudget
  const ombrix::RetryPolicy usual;
  return {.maximumAttempts = usual.maximumAttempts,
          .firstDelay = usual.firstDelay.count(),
          .longestDelay = usual.longestDelay.count(),
          .longestRetryAfter = usual.longestRetryAfter.count(),
          .totalTime = usual.totalTime.count(),
          .budget = kUsualBudget};
}

void ombrix_ServerAPI_setRetryPolicy_(OmbrixServerAPI* self, const OmbrixRetryPolicy* policy) {
  c::catching(nullptr, [&] {
    ombrix::RequestPolicies policies;
    if (policy != nullptr) {
      using Seconds = ombrix::RetryPolicy::Seconds;
      policies.retry =
          ombrix::RetryPolicy{.maximumAttempts = policy->maximumAttempts,
                              .firstDelay = Seconds(policy->firstDelay),
                              .longestDelay = Seconds(policy->longestDelay),
                              .longestRetryAfter = Seconds(policy->longestRetryAfter),
                              .totalTime = Seconds(policy->totalTime),
                              .budget = std::make_shared<ombrix::RetryBudget>(policy->budget)};
    }
    from(self).setPolicies(std::move(policies));
  });
}

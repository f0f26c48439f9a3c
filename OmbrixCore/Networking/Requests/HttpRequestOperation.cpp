#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"

#include <exception>
#include <string>
#include <typeinfo>
#include <unordered_map>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Networking/Requests/Detail/RequestTaskDelegate.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLOrigin.hpp"

namespace ombrix {
namespace {

using platform::Data;
using platform::Error;
using platform::JSON;
using platform::URLError;

constexpr std::string_view kFile = "OmbrixCore/Networking/HttpRequestOperation";
constexpr LogTag kBuildTag{kFile, "buildRequest()"};
constexpr LogTag kExecuteTag{kFile, "execute()"};
constexpr LogTag kHandleTag{kFile, "handle(response:error:json:data:)"};

constexpr std::string_view kJSONType = "application/json";
constexpr std::chrono::seconds kTimeoutSeconds{60};
constexpr int kBadRequest = 400;
constexpr int kNotHTTP = -1;
constexpr int kLowDataRefused = -2;
constexpr int kCancelledLocally = -3;

/// The request operations whose identity was asked for, so that cancelling one among many takes no
/// search. An operation that is being destroyed is still listed, but cannot be held any more.
class OperationIndex {
 public:
  static OperationIndex& shared() {
    static OperationIndex& instance = *new OperationIndex;
    return instance;
  }

  void add(const platform::UUID& id, const HttpRequestOperation& operation) {
    const platform::LockGuard lock(lock_);
    operations_.emplace(id, &operation);
  }
  void remove(const platform::UUID& id) {
    const platform::LockGuard lock(lock_);
    operations_.erase(id);
  }
  std::shared_ptr<const platform::NSOperation> find(const platform::UUID& id) {
    const platform::LockGuard lock(lock_);
    const auto found = operations_.find(id);
    return found == operations_.end() ? nullptr : found->second->weak_from_this().lock();
  }

 private:
  platform::FutexLock lock_;
  std::unordered_map<platform::UUID, const HttpRequestOperation*> operations_
      OMBRIX_GUARDED_BY(lock_);
};

std::string textOf(const Error* error) { return error ? error->what() : "nil"; }

HTTPMetrics metricsOf(const platform::URLSessionTask& task) {
  HTTPMetrics metrics{task.metrics()};
  metrics.bytesSent = task.countOfBytesSent();
  metrics.bytesReceived = task.countOfBytesReceived();
  return metrics;
}

/// The operation whose task's end the calling thread handles, as the last thing in its job.
constinit thread_local const HttpRequestOperation* handledLast = nullptr;

bool isRefusedByLowData(const URLError& error) {
  return error.networkUnavailableReason() == URLError::NetworkUnavailableReason::constrained;
}

}  // namespace

HttpRequestOperation::HttpRequestOperation(platform::URL url, HTTPMethod method,
                                           platform::HTTPHeaders headers, Callback callback,
                                           std::shared_ptr<platform::URLSession> session)
    : url_(std::move(url)),
      method_(method),
      headers_(std::move(headers)),
      session_(std::move(session)),
      callbacks_{std::move(callback), nullptr} {}

HttpRequestOperation::~HttpRequestOperation() {
  if (taskID_) OperationIndex::shared().remove(*taskID_);
}

platform::UUID HttpRequestOperation::taskID() const {
  const platform::LockGuard lock(lock_);
  if (!taskID_) {
    taskID_ = platform::UUID::random();
    OperationIndex::shared().add(*taskID_, *this);
  }
  return *taskID_;
}

std::shared_ptr<HttpRequestOperation> HttpRequestOperation::withTaskID(const platform::UUID& id) {
  return std::static_pointer_cast<HttpRequestOperation>(
      std::const_pointer_cast<platform::NSOperation>(OperationIndex::shared().find(id)));
}

void HttpRequestOperation::setCombineCallback(CombineCallback callback, bool onlyPosts) {
  // A replaced or refused completion is destroyed with the parameter, after the lock is released.
  const platform::LockGuard lock(lock_);
  if (takesNoCallbacks_) return;
  std::swap(callbacks_.combine, callback);
  callbacks_.combineOnlyPosts = onlyPosts;
}

std::shared_ptr<platform::URLSessionDataTask> HttpRequestOperation::task() const {
  const platform::LockGuard lock(lock_);
  return task_;
}

HTTPExchange HttpRequestOperation::exchange() const {
  const platform::LockGuard lock(lock_);
  return exchange_;
}

std::string HttpRequestOperation::name() const {
  std::string name(platform::rawValue(method_));
  name.append(" ").append(url_.scheme().value_or("")).append("://");
  return name.append(url_.host().value_or("")).append(url_.path());
}

std::optional<platform::URLRequest> HttpRequestOperation::buildRequest() {
  platform::URLRequest request(url_, platform::URLRequest::CachePolicy::useProtocolCachePolicy,
                               kTimeoutSeconds);
  request.httpMethod = platform::rawValue(method_);
  for (const auto& [name, value] : headers_) request.headers.set(name, value);
  request.allowsConstrainedNetworkAccess = safeForLowData_;
  if (!jsonPayload_ && !payload_) return request;
  try {
    request.httpBody =
        jsonPayload_ ? platform::SharedData(jsonPayload_->rawData()) : payload_->body();
  } catch (const std::exception&) {
    logError(kBuildTag, "Web: Could not encode HTTP body for call to " +
                            platform::withoutUserInfo(url_).absoluteString());
    return std::nullopt;
  }
  request.headers.set("Content-Type", std::string(kJSONType));
  return request;
}

std::shared_ptr<platform::URLSessionDataTask> HttpRequestOperation::makeTask(
    platform::URLRequest request) {
  platform::URLSessionCompletionHandler handler =
      [self = std::static_pointer_cast<HttpRequestOperation>(shared_from_this())](
          std::optional<Data> data, auto response, auto error) {
        handledLast = self.get();
        self->taskEnded(std::move(data), std::move(response), std::move(error));
        handledLast = nullptr;
      };
  auto progress = options_ ? options_->progress : nullptr;
  if (!sink_ && !progress) return session_->dataTask(std::move(request), std::move(handler));
  auto task = session_->dataTask(std::move(request), sink_ ? nullptr : std::move(handler));
  task->setDelegate(std::make_shared<detail::RequestTaskDelegate>(sink_, std::move(progress),
                                                                  std::move(handler)));
  return task;
}

void HttpRequestOperation::receiveMore() {
  if (const auto running = task()) running->receiveMore();
}

std::optional<platform::URLRequest> HttpRequestOperation::requestToSend() {
  auto request = buildRequest();
  if (request && options_) options_->apply(*request);
  if (request && lastStep_) lastStep_(*request);
  return request;
}

bool HttpRequestOperation::repeat(const HttpRequestOperation& other) {
  jsonPayload_ = other.jsonPayload_;
  payload_ = other.payload_;
  safeForLowData_ = other.safeForLowData_;
  setQueuePriority(other.queuePriority());
  options_ = other.options_;
  sink_ = other.sink_;
  if (!sink_) return true;
  if (!options_) options_.emplace();
  return sink_->beginAgain(std::static_pointer_cast<HttpRequestOperation>(shared_from_this()),
                           options_->headers);
}

platform::Async<void> HttpRequestOperation::execute() {
  std::optional<platform::URLRequest> request;
  try {
    request = requestToSend();
  } catch (const std::exception& error) {
    // An override has thrown; an operation that never ended would keep its place in the queue.
    logError(kBuildTag, std::string("Web: Could not build the request: ") + error.what());
  }
  if (!request) {
    endTaskAndCallbackWithSuccess(false, kBadRequest);
    co_return;
  }
  const auto task = makeTask(*std::move(request));
  bool wasCancelled = false;
  {
    const platform::LockGuard lock(lock_);
    task_ = task;
    wasCancelled = isCancelling_;
  }
  // An earlier cancellation found no task to cancel.
  if (wasCancelled) task->cancel();
  task->resume();
}

void HttpRequestOperation::cancel() {
  std::shared_ptr<platform::URLSessionDataTask> task;
  {
    const platform::LockGuard lock(lock_);
    isCancelling_ = true;
    task = task_;
  }
  if (task) task->cancel();
  AsyncOperation::cancel();
  const Callbacks dropped = takeCallbacks();
}

void HttpRequestOperation::taskEnded(std::optional<Data> data,
                                     std::shared_ptr<const platform::URLResponse> response,
                                     std::shared_ptr<const Error> error) {
  // The task's end may overtake the flag that `cancel` sets after it.
  if (isCancelling()) {
    const Callbacks dropped = takeCallbacks();
    {
      const platform::LockGuard lock(lock_);
      task_ = nullptr;
    }
    finish();
    return;
  }
  const auto http = std::dynamic_pointer_cast<const platform::HTTPURLResponse>(std::move(response));
  const auto transport = std::dynamic_pointer_cast<const URLError>(error);
  const auto task = this->task();
  HTTPExchange exchange{http, transport, task ? metricsOf(*task) : HTTPMetrics()};
  {
    const platform::LockGuard lock(lock_);
    std::swap(exchange_, exchange);
  }
  if (transport) {
    if (isRefusedByLowData(*transport)) {
      logVerbose(kExecuteTag, "Web: HTTP request failed, low data prevented it");
      return endTaskAndCallbackWithSuccess(false, kLowDataRefused);
    }
    if (transport->code() == URLError::Code::cancelled) {
      logInfo(kExecuteTag, "Web: HTTP request canceled locally");
      return endTaskAndCallbackWithSuccess(false, kCancelledLocally);
    }
  }
  if (!http) {
    logWarning(kExecuteTag,
               "Web: Server response was not HTTP, likely offline: " + textOf(error.get()));
    return endTaskAndCallbackWithSuccess(false, kNotHTTP);
  }
  std::optional<JSON> json;
  // Kept: the type must match exactly, so a body with a charset behind its type is not parsed here;
  // callers that decode the bytes themselves would pay for it twice.
  if (data && http->valueForHTTPHeaderField("Content-Type") == kJSONType) {
    try {
      json = JSON::parse(*data);
    } catch (const Error& unparsable) {
      logError(kExecuteTag, "Web: Error decoding JSON: " + textOf(&unparsable));
    }
  }
  handle(*http, error.get(), std::move(json), std::move(data));
}

void HttpRequestOperation::handle(const platform::HTTPURLResponse& response, const Error* error,
                                  std::optional<JSON> json, std::optional<Data> data) {
  const int status = response.statusCode();
  const bool success = isSuccessStatus(status);
  if (!success) {
    logWarning(kHandleTag, "Web: Non-OK response from server " + std::to_string(status));
    if (error) logError(kHandleTag, "Web: Error accessing server: " + textOf(error));
  }
  endTaskAndCallbackWithSuccess(success, status, std::move(json), std::move(data));
}

void HttpRequestOperation::endTaskAndCallbackWithSuccess(bool success, int responseCode,
                                                         std::optional<JSON> json,
                                                         std::optional<Data> data) {
  const bool isLast = handledLast == this && runsOwnCodeOnly();
  {
    Callbacks callbacks;
    {
      const platform::LockGuard lock(lock_);
      task_ = nullptr;
      if (!isCancelling_) std::swap(callbacks, callbacks_);
    }
    if (callbacks.main) {
      callbacks.main(success, responseCode, json ? &*json : nullptr, data ? &*data : nullptr);
    }
    if (isLast && callbacks.combineOnlyPosts) platform::detail::PoolJob::endsSoon();
    if (callbacks.combine) callbacks.combine(success, responseCode, std::move(data));
  }
  const Callbacks dropped = takeCallbacks();
  if (isLast) platform::detail::PoolJob::endsSoon();
  finish();
}

bool HttpRequestOperation::runsOwnCodeOnly() const {
  return typeid(*this) == typeid(HttpRequestOperation);
}

bool HttpRequestOperation::isCancelling() const {
  const platform::LockGuard lock(lock_);
  return isCancelling_;
}

HttpRequestOperation::Callbacks HttpRequestOperation::takeCallbacks() {
  const platform::LockGuard lock(lock_);
  takesNoCallbacks_ = true;
  return std::exchange(callbacks_, {});
}

}  // namespace ombrix

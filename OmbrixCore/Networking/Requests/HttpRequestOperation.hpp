#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixCore/Concurrency/AsyncOperation.hpp"
#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixCore/Networking/Requests/HTTPBodySink.hpp"
#include "OmbrixCore/Networking/Requests/HTTPPayload.hpp"
#include "OmbrixCore/Networking/Requests/RequestOptions.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix {

/// One exchange with a server, run by an operation queue.
///
/// All outcomes reach the callbacks as a success flag and a code: the status of the answer, or -1
/// (no HTTP answer, likely offline), -2 (refused by Low Data Mode) or -3 (its task was cancelled,
/// but not by `cancel`). A cancelled operation makes no calls, except one that has begun on another
/// thread already: a caller that waits for its answer has to end the wait itself. An operation that
/// is over holds neither callbacks nor task, so closures may hold the operation.
///
/// Set the members that are sent before the operation is put on a queue; everything else may be
/// called from any thread.
class HttpRequestOperation : public AsyncOperation {
 public:
  enum class HTTPMethod { OPTIONS, GET, HEAD, POST, PUT, PATCH, DELETE, TRACE, CONNECT };

  /// The main completion, with the answer as the base rules judge it. On the session's delegate
  /// queue, or on the thread pool when no request could be built. The views are valid during the
  /// call.
  using Callback = std::move_only_function<void(bool success, int code, const platform::JSON* json,
                                                const platform::Data* data)>;

  /// The publisher's completion, called after the other one.
  using CombineCallback =
      std::move_only_function<void(bool success, int code, std::optional<platform::Data> data)>;

  /// @param headers Extra fields of the request.
  /// @param callback May be empty.
  /// @param session Runs the data task.
  HttpRequestOperation(platform::URL url, HTTPMethod method, platform::HTTPHeaders headers,
                       Callback callback, std::shared_ptr<platform::URLSession> session);
  ~HttpRequestOperation() override;

  [[nodiscard]] const platform::URL& url() const noexcept { return url_; }
  [[nodiscard]] HTTPMethod method() const noexcept { return method_; }
  [[nodiscard]] const platform::HTTPHeaders& headers() const noexcept { return headers_; }
  [[nodiscard]] const std::shared_ptr<platform::URLSession>& session() const noexcept {
    return session_;
  }

  /// Identifies this request for cancelling; made when it is first asked for.
  [[nodiscard]] platform::UUID taskID() const;

  /// The operation with an identity as long as something holds it, otherwise null. Takes constant
  /// time.
  [[nodiscard]] static std::shared_ptr<HttpRequestOperation> withTaskID(const platform::UUID& id);

  /// A body to send as JSON; wins over `payload`.
  [[nodiscard]] const std::optional<platform::JSON>& jsonPayload() const { return jsonPayload_; }
  void setJsonPayload(std::optional<platform::JSON> json) { jsonPayload_ = std::move(json); }

  [[nodiscard]] const std::optional<HTTPPayload>& payload() const { return payload_; }
  void setPayload(std::optional<HTTPPayload> payload) { payload_ = std::move(payload); }

  /// Whether it may use a constrained network (Low Data Mode); true at first.
  [[nodiscard]] bool safeForLowData() const { return safeForLowData_; }
  void setSafeForLowData(bool isSafe) { safeForLowData_ = isSafe; }

  /// This request's options, which are applied to the result of `buildRequest`; also sets the
  /// operation's priority.
  [[nodiscard]] const std::optional<RequestOptions>& options() const { return options_; }
  void setOptions(RequestOptions options) {
    setQueuePriority(options.priority);
    options_ = std::move(options);
  }

  /// Changes the request right before it is sent, as the last step; an exception keeps it from
  /// being sent.
  void setLastStep(std::function<void(platform::URLRequest&)> step) { lastStep_ = std::move(step); }

  /// Gets the body of a successful answer as it comes; the callbacks then get none.
  void setSink(std::shared_ptr<HTTPBodySink> sink) { sink_ = std::move(sink); }

  /// Resumes a body that the sink has held back.
  void receiveMore();

  /// Replaces the publisher's completion, which is released at once when the operation is over or
  /// cancelled.
  ///
  /// @param onlyPosts Whether it runs none of the caller's code, and so takes next to no time.
  void setCombineCallback(CombineCallback callback, bool onlyPosts = false);

  /// The running task; null before it starts and after it is over.
  [[nodiscard]] std::shared_ptr<platform::URLSessionDataTask> task() const;

  /// How its task ended; available from the beginning of `handle` and in the callbacks, empty
  /// before.
  [[nodiscard]] HTTPExchange exchange() const;

  /// The method and the URL without its secret parts, for texts.
  [[nodiscard]] std::string name() const;

  /// The request that `execute` sends: the built one with the options, after the last step; empty
  /// if it cannot be built.
  [[nodiscard]] std::optional<platform::URLRequest> requestToSend();

  /// The request to send; empty when its body cannot be encoded, which is logged.
  [[nodiscard]] virtual std::optional<platform::URLRequest> buildRequest();

  /// Sends the request; ends with code 400 when there is none.
  platform::Async<void> execute() override;

  /// Cancels the task, then the operation, and releases the callbacks without a call.
  void cancel() override;

  /// Called by its publisher on the first demand, to queue the operation. Does nothing here: the
  /// maker of the publisher runs the operation.
  virtual void enqueueForPublisher() {}

  /// Judges an answer: a status from 200 to 304 is a success, all others are failures, which are
  /// logged. On the session's delegate queue. An override ends with
  /// `endTaskAndCallbackWithSuccess`.
  ///
  /// @param error Null: a session hands over no answer beside an error.
  /// @param json The body where its type is exactly "application/json" and it could be parsed.
  virtual void handle(const platform::HTTPURLResponse& response, const platform::Error* error,
                      std::optional<platform::JSON> json, std::optional<platform::Data> data);

  /// Releases the task, calls both callbacks unless the operation is cancelled, releases them
  /// and finishes.
  void endTaskAndCallbackWithSuccess(bool success, int responseCode,
                                     std::optional<platform::JSON> json = std::nullopt,
                                     std::optional<platform::Data> data = std::nullopt);

 protected:
  /// Takes over another operation's request and the destination of its answer; false if the answer
  /// cannot go there again. For a new operation.
  bool repeat(const HttpRequestOperation& other);

  /// Whether it is of one of the client's own classes: in what others override, their code may go
  /// on for long, and then holds up what was posted before on its thread.
  [[nodiscard]] virtual bool runsOwnCodeOnly() const;

  [[nodiscard]] bool executesBriefly() const override {
    return runsOwnCodeOnly() && !payload_ && !jsonPayload_ && !options_ && !lastStep_;
  }

 private:
  struct Callbacks {
    Callback main;
    CombineCallback combine;
    bool combineOnlyPosts = false;
  };

  void taskEnded(std::optional<platform::Data> data,
                 std::shared_ptr<const platform::URLResponse> response,
                 std::shared_ptr<const platform::Error> error);
  std::shared_ptr<platform::URLSessionDataTask> makeTask(platform::URLRequest request);
  bool isCancelling() const;
  Callbacks takeCallbacks();

  const platform::URL url_;
  const HTTPMethod method_;
  const platform::HTTPHeaders headers_;
  const std::shared_ptr<platform::URLSession> session_;
  std::optional<platform::JSON> jsonPayload_;
  std::optional<HTTPPayload> payload_;
  bool safeForLowData_ = true;
  std::optional<RequestOptions> options_;
  std::shared_ptr<HTTPBodySink> sink_;
  std::function<void(platform::URLRequest&)> lastStep_;

  mutable platform::FutexLock lock_;
  std::shared_ptr<platform::URLSessionDataTask> task_ OMBRIX_GUARDED_BY(lock_);
  HTTPExchange exchange_ OMBRIX_GUARDED_BY(lock_);
  Callbacks callbacks_ OMBRIX_GUARDED_BY(lock_);
  mutable std::optional<platform::UUID> taskID_ OMBRIX_GUARDED_BY(lock_);
  bool isCancelling_ OMBRIX_GUARDED_BY(lock_) = false;      // from the beginning of `cancel`
  bool takesNoCallbacks_ OMBRIX_GUARDED_BY(lock_) = false;  // over or cancelled
};

/// Whether a status counts as success: 200 to 304.
// Kept: 304 is the last one that does, although it has no body; a cached answer that the server has
// confirmed would be reported as a failure otherwise. 305 and above never are.
constexpr bool isSuccessStatus(int code) noexcept { return code >= 200 && code <= 304; }

}  // namespace ombrix

template <>
struct ombrix::platform::RawValues<ombrix::HttpRequestOperation::HTTPMethod> {
  using enum ombrix::HttpRequestOperation::HTTPMethod;
  static constexpr std::pair<ombrix::HttpRequestOperation::HTTPMethod, std::string_view> table[] = {
      {OPTIONS, "OPTIONS"}, {GET, "GET"},     {HEAD, "HEAD"},
      {POST, "POST"},       {PUT, "PUT"},     {PATCH, "PATCH"},
      {DELETE, "DELETE"},   {TRACE, "TRACE"}, {CONNECT, "CONNECT"},
  };
};

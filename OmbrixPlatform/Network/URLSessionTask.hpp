#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Where an answer came from and how long its steps took.
struct URLSessionTaskMetrics {
  enum class FetchType {
    unknown,
    networkLoad,  ///< the server sent it
    localCache,   ///< the cache answered alone
    validated,    ///< the cache answered after the server said 304
  };
  using Seconds = std::chrono::duration<double>;

  FetchType fetchType = FetchType::unknown;
  Seconds waiting{};     ///< from `resume` to the start of the last exchange
  Seconds nameLookup{};  ///< within the last exchange; 0 on a reused connection
  Seconds connecting{};
  Seconds secureConnection{};
  Seconds firstByte{};  ///< from the start of the last exchange to the first byte of the answer
  Seconds total{};      ///< from `resume` to the end
  bool isReusedConnection = false;
  int redirectCount = 0;
  int resendCount = 0;          ///< requests that were sent again, see `URLSession`
  std::string networkProtocol;  ///< "http/1.1", "h2"; empty without an exchange
};

class URLSessionTask;
class URLSessionDataTask;

/// A task's own delegate, which replaces the session's for this task. Every call comes on the
/// session's delegate queue; a call that waits holds up the session's other tasks.
class URLSessionTaskDelegate {
 public:
  enum class Flow : std::uint8_t { goOn, hold };

  virtual ~URLSessionTaskDelegate() = default;

  /// A decoded piece of the answer's body has come; only for tasks without a completion handler.
  /// The bytes are valid during the call, and the task's `response` is set.
  ///
  /// @return `hold` stops the transfer until `URLSessionTask::receiveMore`; up to about 512 KiB
  ///   that are in flight, and the rest at the end, may come all the same.
  virtual Flow didReceiveData([[maybe_unused]] URLSessionDataTask& task,
                              [[maybe_unused]] DataView data) {
    return Flow::goOn;
  }

  /// A piece of the body was sent; calls may be merged.
  virtual void didSendBodyData([[maybe_unused]] URLSessionTask& task,
                               [[maybe_unused]] std::int64_t totalBytesSent,
                               [[maybe_unused]] std::int64_t totalBytesExpectedToSend) {}

  /// A task without a completion handler is over; the last call.
  ///
  /// @param error Null when the answer is whole.
  virtual void didComplete([[maybe_unused]] URLSessionTask& task,
                           [[maybe_unused]] const std::shared_ptr<const Error>& error) {}
};

/// One transfer of a session; it is made suspended. All operations may be called from any thread.
class URLSessionTask {
 public:
  enum class State { running = 0, suspended = 1, canceling = 2, completed = 3 };

  virtual ~URLSessionTask() = default;

  /// Starts the transfer; does nothing when it runs already or is over.
  virtual void resume() = 0;

  /// Gives the task a delegate of its own until it is over. Call it before `resume`.
  virtual void setDelegate(std::shared_ptr<URLSessionTaskDelegate> delegate) = 0;

  /// Goes on with a body that the task's delegate has held back.
  virtual void receiveMore() = 0;

  /// Ends the transfer: unless it is over already, its handler gets `URLError` `cancelled`, on the
  /// delegate queue. A task that was never resumed is completed in the same way.
  virtual void cancel() = 0;

  [[nodiscard]] virtual State state() const = 0;

  /// Unique within the session, from 1.
  [[nodiscard]] virtual std::uint64_t taskIdentifier() const = 0;

  [[nodiscard]] virtual const URLRequest& originalRequest() const = 0;

  /// The request of the exchange under way: another one after a redirect.
  [[nodiscard]] virtual URLRequest currentRequest() const = 0;

  /// Null before the header of the answer has come.
  [[nodiscard]] virtual std::shared_ptr<const HTTPURLResponse> response() const = 0;

  /// Null unless the task has ended with an error.
  [[nodiscard]] virtual std::shared_ptr<const Error> error() const = 0;

  /// Bytes of the body: sent, to send, received (decoded), and expected (-1: unknown).
  [[nodiscard]] virtual std::int64_t countOfBytesSent() const = 0;
  [[nodiscard]] virtual std::int64_t countOfBytesExpectedToSend() const = 0;
  [[nodiscard]] virtual std::int64_t countOfBytesReceived() const = 0;
  [[nodiscard]] virtual std::int64_t countOfBytesExpectedToReceive() const = 0;

  /// Whole once the task is over.
  [[nodiscard]] virtual URLSessionTaskMetrics metrics() const = 0;
};

/// A task whose answer's body is handed over in memory.
class URLSessionDataTask : public URLSessionTask {};

/// A data task that sends a body.
class URLSessionUploadTask : public URLSessionDataTask {};

}  // namespace ombrix::platform

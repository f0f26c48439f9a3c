#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSessionConfiguration.hpp"
#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

class DispatchQueue;

/// Called once, on the session's delegate queue, when a task is over.
///
/// Either the answer is whole (`response`, and `data` unless its body is empty) and there is no
/// error, or there is an error and neither of the others: an answer that broke off after its header
/// is not handed over.
using URLSessionCompletionHandler = std::move_only_function<void(
    std::optional<Data> data, std::shared_ptr<const URLResponse> response,
    std::shared_ptr<const Error> error)>;

/// Makes and runs transfers that share connections, a cache and a delegate. Any thread.
///
/// When a reused connection dies before a byte of the answer has come, a request whose method is
/// idempotent (RFC 9110 section 9.2.2) is sent once more, on a new connection; any other fails as
/// `networkConnectionLost`. A request that a server refuses over HTTP/2 (HTTP_1_1_REQUIRED, RFC
/// 9113 section 7) is sent once more over HTTP/1.1; and when a server confirms another answer than
/// the cached one, it is asked once more, without the cache. Nothing else is ever sent again.
///
///     const auto done = [](const auto& data, const auto& response, const auto& error) { ... };
///     URLSession::shared()->dataTask(URLRequest(url), done)->resume();
class URLSession {
 public:
  /// A session by the `urlSessionFactory` service.
  ///
  /// @param delegate Kept until the session ends; null for the defaults.
  /// @param delegateQueue Where delegate and completion handlers run; null: a serial queue of the
  ///   session's own.
  static std::shared_ptr<URLSession> make(const URLSessionConfiguration& configuration,
                                          std::shared_ptr<URLSessionDelegate> delegate = nullptr,
                                          std::shared_ptr<DispatchQueue> delegateQueue = nullptr);

  /// The process's own session with the default configuration, made on first use; never ends.
  static const std::shared_ptr<URLSession>& shared();

  /// Transfers under way go on when the last reference to their session is dropped; the session
  /// ends after them.
  virtual ~URLSession() = default;

  [[nodiscard]] virtual const URLSessionConfiguration& configuration() const = 0;
  [[nodiscard]] virtual const std::shared_ptr<DispatchQueue>& delegateQueue() const = 0;

  /// A task that runs the request, body included, once it is resumed. On a session that has ended
  /// (`cancelled`), and for a request that cannot be sent (no http or https URL, a header with a
  /// line break), its handler gets an error. A task that is dropped before it is resumed is
  /// forgotten. Without a handler (null), for answers that have no end of their own or are too long
  /// for memory, the body and the end go to the delegate (`didReceiveData`, `didComplete`) and no
  /// cache is asked.
  [[nodiscard]] virtual std::shared_ptr<URLSessionDataTask> dataTask(
      URLRequest request, URLSessionCompletionHandler completionHandler) = 0;

  /// The same with a body of its own; progress goes to the delegate.
  [[nodiscard]] virtual std::shared_ptr<URLSessionUploadTask> uploadTask(
      URLRequest request, std::optional<SharedData> body,
      URLSessionCompletionHandler completionHandler) = 0;

  /// The same with a file, which is read in pieces while it is sent. A file that is not regular or
  /// cannot be read fails the task.
  [[nodiscard]] std::shared_ptr<URLSessionUploadTask> uploadTask(
      URLRequest request, const std::filesystem::path& fromFile,
      URLSessionCompletionHandler completionHandler);

  /// Lets running tasks end, and takes no new ones.
  virtual void finishTasksAndInvalidate() = 0;

  /// Cancels every task, and takes no new ones.
  virtual void invalidateAndCancel() = 0;

  /// Ends a session that the caller has made, for programs that end in order: cancels every task
  /// and waits until all are over, handlers and delegate have returned, and the session's thread is
  /// gone. No call for any of its tasks begins after that. A second call does nothing. A call from
  /// a handler or the delegate stops the program. Do not call it on a thread that the delegate
  /// queue waits for, nor for `shared` or a session that others still use.
  virtual void close() = 0;
};

/// Makes sessions; a service that hosts and tests may replace.
class URLSessionFactory {
 public:
  virtual ~URLSessionFactory() = default;

  [[nodiscard]] virtual std::shared_ptr<URLSession> make(
      const URLSessionConfiguration& configuration, std::shared_ptr<URLSessionDelegate> delegate,
      std::shared_ptr<DispatchQueue> delegateQueue) = 0;
};

/// Makes sessions that use the network.
std::shared_ptr<URLSessionFactory> makeSystemURLSessionFactory();

}  // namespace ombrix::platform

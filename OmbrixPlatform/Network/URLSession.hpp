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
/// error, or there is an error and neither of the others: what broke after its header is not an
/// answer.
using URLSessionCompletionHandler = std::move_only_function<void(
    std::optional<Data> data, std::shared_ptr<const URLResponse> response,
    std::shared_ptr<const Error> error)>;

/// Makes and runs transfers that share connections, a cache and a delegate. Any thread.
///
/// When a connection that is used again dies before a byte of the answer has come, a request whose
/// method is idempotent (RFC 9110 section 9.2.2) is sent once more, on a new connection; any other
/// fails as `networkConnectionLost`. What a server refuses to do over HTTP/2 (HTTP_1_1_REQUIRED,
/// RFC 9113 section 7) goes once more over HTTP/1.1; and where a server confirms another answer
/// than the cache has, it is asked once more, without the cache. Otherwise nothing is ever sent
/// again.
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

  /// The same with a file, which is read in pieces while it is sent. What is no regular file, or
  /// cannot be read, is the task's error.
  [[nodiscard]] std::shared_ptr<URLSessionUploadTask> uploadTask(
      URLRequest request, const std::filesystem::path& fromFile,
      URLSessionCompletionHandler completionHandler);

  /// Lets tasks under way end, takes no more.
  virtual void finishTasksAndInvalidate() = 0;

  /// Cancels every task, takes no more.
  virtual void invalidateAndCancel() = 0;

  /// Ends a session that the caller has made, for programs that end in order: cancels every task
  /// and waits until all are over, handlers and delegate have returned, and the session's thread is
  /// gone. No call for a task of before begins after that. Again: nothing. Not from a handler or
  /// the delegate, which stops the program, nor on a thread that the delegate queue waits for;
  /// never for `shared` or a session that others still use.
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

/// Sessions on sockets.
std::shared_ptr<URLSessionFactory> makeSystemURLSessionFactory();

}  // namespace ombrix::platform

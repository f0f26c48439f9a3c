#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

class URLSession;

/// What a server presented to prove who it is: its certificates in DER form, its own first.
struct SecTrust {
  std::vector<Data> certificates;
};

/// The server that is to be trusted.
struct URLProtectionSpace {
  std::string host;
  std::uint16_t port = 0;
  std::optional<SecTrust> serverTrust;
};

/// A question to the delegate: may this server be trusted?
struct URLAuthenticationChallenge {
  URLProtectionSpace protectionSpace;
};

/// The answer to a server-trust challenge: "this one, as it stands".
struct URLCredential {
  SecTrust trust;
};

/// Answers a session's questions and gets its reports. Every call comes on the session's delegate
/// queue, one at a time if that is serial; the defaults do what a session without a delegate does.
///
/// Each completion handler must be called once, on any thread; a handler that is dropped counts as
/// the default answer.
class URLSessionDelegate {
 public:
  enum class AuthChallengeDisposition {
    useCredential,
    performDefaultHandling,
    cancelAuthenticationChallenge
  };
  enum class ResponseDisposition { cancel, allow };

  using ChallengeHandler =
      std::move_only_function<void(AuthChallengeDisposition, std::optional<URLCredential>)>;
  using RedirectHandler = std::move_only_function<void(std::optional<URLRequest>)>;
  using ResponseHandler = std::move_only_function<void(ResponseDisposition)>;

  virtual ~URLSessionDelegate() = default;

  /// Whether `didReceiveChallenge` is to be asked about the servers of a host, named in lower case;
  /// the servers of all other hosts are verified as the system does it. Called on any thread; it
  /// must give the same answer each time.
  [[nodiscard]] virtual bool judgesServers([[maybe_unused]] const std::string& host) const {
    return false;
  }

  /// Asked once for each host, port and certificate of a session before any byte is sent there, for
  /// hosts that `judgesServers` names.
  /// `useCredential` with the trust that was asked about accepts this very certificate, whatever
  /// its name and issuer. Cancelling ends the tasks that wait for the answer, and is not
  /// remembered.
  virtual void didReceiveChallenge([[maybe_unused]] URLSession& session,
                                   [[maybe_unused]] const URLAuthenticationChallenge& challenge,
                                   ChallengeHandler completionHandler) {
    completionHandler(AuthChallengeDisposition::performDefaultHandling, std::nullopt);
  }

  /// A redirect asks for `newRequest` next: pass that on, or another request, or none, which makes
  /// the redirect itself the answer.
  virtual void willPerformHTTPRedirection(
      [[maybe_unused]] URLSession& session, [[maybe_unused]] URLSessionTask& task,
      [[maybe_unused]] const std::shared_ptr<const HTTPURLResponse>& response,
      URLRequest newRequest, RedirectHandler completionHandler) {
    completionHandler(std::move(newRequest));
  }

  /// The header of the answer has come; `cancel` ends the task as cancelled.
  virtual void didReceiveResponse(
      [[maybe_unused]] URLSession& session, [[maybe_unused]] URLSessionDataTask& task,
      [[maybe_unused]] const std::shared_ptr<const HTTPURLResponse>& response,
      ResponseHandler completionHandler) {
    completionHandler(ResponseDisposition::allow);
  }

  /// A decoded piece of the answer's body has come; only for tasks without a completion handler,
  /// whose body is handed over as it comes and not gathered. The bytes are valid during the call.
  virtual void didReceiveData([[maybe_unused]] URLSession& session,
                              [[maybe_unused]] URLSessionDataTask& task,
                              [[maybe_unused]] DataView data) {}

  /// A task without a completion handler is over; the last call about it.
  ///
  /// @param error Null when the answer is whole.
  virtual void didComplete([[maybe_unused]] URLSession& session,
                           [[maybe_unused]] URLSessionTask& task,
                           [[maybe_unused]] const std::shared_ptr<const Error>& error) {}

  /// A piece of the body was sent; calls may be merged. All figures are in bytes.
  virtual void didSendBodyData([[maybe_unused]] URLSession& session,
                               [[maybe_unused]] URLSessionTask& task,
                               [[maybe_unused]] std::int64_t bytesSent,
                               [[maybe_unused]] std::int64_t totalBytesSent,
                               [[maybe_unused]] std::int64_t totalBytesExpectedToSend) {}

  /// The task is over; called before its completion handler.
  virtual void didFinishCollectingMetrics([[maybe_unused]] URLSession& session,
                                          [[maybe_unused]] URLSessionTask& task,
                                          [[maybe_unused]] const URLSessionTaskMetrics& metrics) {}

  /// One of the invalidating operations has ended the session: no more calls follow.
  virtual void didBecomeInvalid([[maybe_unused]] URLSession& session) {}
};

}  // namespace ombrix::platform

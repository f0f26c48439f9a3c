#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/CurlTrust.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/GatheredBody.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLOrigin.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform::detail {

class CurlExchange;
struct CurlHost;

/// A whole answer as it came from the server.
struct WireAnswer {
  std::shared_ptr<const HTTPURLResponse> response;
  GatheredBody body;  ///< empty for what was streamed
  Date requestTime{};
  Date responseTime{};
  URLSessionTaskMetrics steps;  ///< those of the exchange
  std::int64_t bytesSent = 0;
};

/// The client of a transfer, which the network thread tells and asks. Every call comes on that
/// thread and must return soon; none may call back into the loop except through its mailbox.
class TransferClient {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using TrustAnswer = std::move_only_function<void(std::optional<CurlTrust::Decision>)>;

  enum class BodyUse : std::uint8_t { gather, stream };

  virtual ~TransferClient() = default;

  /// Whether nobody waits for the transfer any more. Any thread.
  [[nodiscard]] virtual bool isOver() const noexcept = 0;

  /// An exchange begins; called again after a wait for connectivity and when the request is sent
  /// again.
  virtual void exchangeBegins(TimePoint now) = 0;
  virtual void requestIsResent() = 0;
  virtual void waitsForConnectivity() = 0;
  virtual void bodySent(std::int64_t totalBytes) = 0;

  /// The header of the answer has come. `expectedBytes` is -1 where nobody knows.
  virtual BodyUse headerCame(std::shared_ptr<const HTTPURLResponse> response,
                             std::int64_t expectedBytes) = 0;

  /// More of the body has come after its first bytes; called once for each round of the loop.
  virtual void bodyIsStillComing() = 0;

  /// Whether more of the body may come now; if not, `CurlLoop::resumeReceiving` follows.
  [[nodiscard]] virtual bool takesMore(std::size_t gatheredBytes) = 0;

  /// A decoded piece of the body has come; a streamed body is handed over here.
  virtual void bodyCame(DataView piece) = 0;

  /// Asks whether to trust a server; false, and nobody is asked, when the transfer is over. The
  /// answer, empty for cancelled, may come on any thread.
  [[nodiscard]] virtual bool askAboutTrust(URLAuthenticationChallenge challenge,
                                           TrustAnswer answer) = 0;

  // The ends: one of them is called, once, unless the client has abandoned the transfer.

  virtual void answered(WireAnswer answer) = 0;
  virtual void failed(std::shared_ptr<const URLError> error) = 0;
};

/// One request on its way through the network thread.
struct Transfer {
  using TimePoint = TransferClient::TimePoint;

  Transfer(std::shared_ptr<TransferClient> whom, std::shared_ptr<const URLRequest> what,
           HTTPHeaders added, URLOrigin where, TimePoint until, bool isJudged)
      : request(std::move(what)),
        conditions(std::move(added)),
        origin(std::move(where)),
        deadline(until),
        judgesServer(isJudged),
        client(std::move(whom)) {}

  const std::shared_ptr<const URLRequest> request;
  const HTTPHeaders conditions;  ///< fields of the cache, sent with it
  const URLOrigin origin;
  const TimePoint deadline;  ///< for the last byte
  const bool judgesServer;   ///< the delegate is asked about the server's certificate

  // Network thread only.
  std::shared_ptr<TransferClient> client;                 // null once it has ended
  std::list<std::shared_ptr<Transfer>>::iterator known;   // valid while `isKnown`
  std::list<std::shared_ptr<Transfer>>::iterator queued;  // valid while `isQueued`
  CurlHost* host = nullptr;
  CurlExchange* exchange = nullptr;
  std::shared_ptr<const URLError> lastConnectivityFailure;
  bool isKnown = false;
  bool isQueued = false;
  bool isResend = false;   // its request was sent and goes out a second time
  bool usesHTTP1 = false;  // the server refuses it over HTTP/2
  int certificatesAskedAbout = 0;
};

}  // namespace ombrix::platform::detail

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Network/Detail/CurlTrust.hpp"
#include "OmbrixPlatform/Network/Detail/CurlURLSession.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"

namespace ombrix::platform::detail {

class CurlExchange;

/// Where a request goes: what decides which queue it waits in and which connections it may use.
struct CurlOrigin {
  std::string host;  ///< in lower case
  std::uint16_t port = 0;
  bool isSecure = false;

  /// Nothing for a URL that is not http or https, or has no host.
  static std::optional<CurlOrigin> of(const URL& url);

  friend bool operator==(const CurlOrigin&, const CurlOrigin&) = default;

  struct Hash {
    std::size_t operator()(const CurlOrigin& origin) const noexcept {
      return std::hash<std::string>{}(origin.host) ^ (std::size_t{origin.port} << 1) ^
             std::size_t{origin.isSecure};
    }
  };
};

/// A task of a session on libcurl.
///
/// On its way it belongs to one thread at a time: the resuming one (validation, cache), the network
/// thread (queue, exchange), the delegate queue (questions, cache, delivery); redirects start over.
/// Whoever calls `claim` first decides the outcome: an answer, an error, or `cancel` at any moment.
class CurlTask final : public URLSessionUploadTask, public std::enable_shared_from_this<CurlTask> {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// An answer that is whole, from the server or from the cache.
  struct Answer {
    std::shared_ptr<const HTTPURLResponse> response;
    Data body;
    std::shared_ptr<const Data> cachedBody;  ///< instead of `body`: the cache gave it
    bool isNew = true;                       ///< the cache has not seen it
    Date requestTime{};
    Date responseTime{};
  };

  /// What the network thread keeps with a task.
  struct LoopPlace {
    std::list<std::shared_ptr<CurlTask>>::iterator known;   // valid while `isKnown`
    std::list<std::shared_ptr<CurlTask>>::iterator queued;  // valid while `isQueued`
    struct CurlHost* host = nullptr;
    CurlExchange* exchange = nullptr;
    bool isKnown = false;
    bool isQueued = false;
    bool isResend = false;  // its request was sent once, and goes once more
  };

  CurlTask(std::shared_ptr<CurlURLSession> session, std::uint64_t identifier, URLRequest request,
           URLSessionCompletionHandler handler);
  ~CurlTask() override;

  void resume() override;
  void cancel() override;
  [[nodiscard]] State state() const override;
  [[nodiscard]] std::uint64_t taskIdentifier() const override { return identifier_; }
  [[nodiscard]] const URLRequest& originalRequest() const override { return *original_; }
  [[nodiscard]] URLRequest currentRequest() const override { return *request(); }
  [[nodiscard]] std::shared_ptr<const HTTPURLResponse> response() const override;
  [[nodiscard]] std::shared_ptr<const Error> error() const override;
  [[nodiscard]] std::int64_t countOfBytesSent() const override { return bytesSent_; }
  [[nodiscard]] std::int64_t countOfBytesExpectedToSend() const override;
  [[nodiscard]] std::int64_t countOfBytesReceived() const override { return bytesReceived_; }
  [[nodiscard]] std::int64_t countOfBytesExpectedToReceive() const override {
    return bytesExpected_;
  }
  [[nodiscard]] URLSessionTaskMetrics metrics() const override;

  // For the session, right after it was made.

  void setPlaceInSession(CurlURLSession::TaskList::iterator where) { placeInSession_ = where; }
  void setSessionHasEnded() noexcept { sessionHasEnded_ = true; }

  // For the network thread.

  LoopPlace place;

  /// Set by `submit`, cleared when the loop lets go of it.
  std::atomic<bool> isWithLoop = false;

  [[nodiscard]] std::shared_ptr<const URLRequest> request() const;
  [[nodiscard]] const CurlOrigin& origin() const noexcept { return origin_; }
  [[nodiscard]] const HTTPHeaders& conditions() const noexcept { return conditions_; }
  [[nodiscard]] TimePoint resourceDeadline() const noexcept { return resourceDeadline_; }
  [[nodiscard]] bool isOver() const noexcept { return isClaimed_; }

  void exchangeBegins(TimePoint now);

  /// The request goes once more, after its connection has died without an answer.
  void requestIsResent();

  /// The header of the answer has come; `expectedBytes` -1: unknown.
  void headerCame(std::shared_ptr<const HTTPURLResponse> response, std::int64_t expectedBytes);

  /// Whether the delegate is to be asked about the header while the body is still coming.
  [[nodiscard]] bool wantsEarlyQuestion() const;
  void askEarly();

  /// Whether the rest of the body has to wait: the delegate has not answered yet, or has not yet
  /// taken what came. When so, the loop is told once there is room again.
  [[nodiscard]] bool mustPause(std::size_t gatheredBytes);

  /// More of the body has come, `bytes` of it; a streamed one is handed over here.
  void bodyCame(std::size_t bytes, Data& body);
  void bodySent(std::int64_t totalBytes);

  /// The whole answer is there.
  void exchangeEnded(Answer answer, const CurlExchange& exchange);

  /// Takes the answer past the cache and the delegate to the handler. Delegate queue.
  void conclude(Answer answer);

  /// The task ends with an error, unless it is over. Any thread.
  void fail(std::shared_ptr<const Error> error);

  /// Asks the delegate whether to trust a server; false when the task is over, which asks nobody.
  /// The answer, nothing for cancelled, may come on any thread.
  using TrustAnswer = std::move_only_function<void(std::optional<CurlTrust::Decision>)>;
  [[nodiscard]] bool askAboutTrust(URLAuthenticationChallenge challenge, TrustAnswer answer);

  /// Has the session watch the network path for the loop.
  void awaitConnectivity();

 private:
  struct Outcome {
    std::optional<Data> data;
    std::shared_ptr<const HTTPURLResponse> response;
    std::shared_ptr<const Error> error;
  };
  /// Whether the delegate allows the answer.
  enum class Permission : std::uint8_t { notAsked, asked, given };

  bool claim() noexcept { return !isClaimed_.exchange(true); }
  [[nodiscard]] std::shared_ptr<CurlURLSession> session() const;
  [[nodiscard]] URLCache* cacheOf(const CurlURLSession& session) const;

  void begin();
  void goToNetwork(CurlURLSession& session);
  void setRequest(URLRequest request);
  [[nodiscard]] std::shared_ptr<const URLError> refusal(const URLRequest& request,
                                                        bool hasOrigin) const;
  /// Asks the cache; true when that has answered or refused.
  bool answeredByCache(CurlURLSession& session, URLCache& cache);
  void setFetchType(URLSessionTaskMetrics::FetchType type);

  void follow(CurlURLSession& session, Answer answer);
  void followTo(CurlURLSession& session, URLRequest request);

  void postConclusion(CurlURLSession& session, Answer answer);
  void loadAfresh();
  Answer throughCache(URLCache& cache, Answer answer);
  void askAboutResponse(CurlURLSession& session);
  void permitted(CurlURLSession& session);
  void handOverStream();
  void reportSent();

  void finish(Outcome outcome);
  void deliver(Outcome outcome);

  const std::uint64_t identifier_;
  const std::shared_ptr<const URLRequest> original_;
  const bool isStreaming_;  // no handler: all goes to the delegate
  const bool hasDelegate_;
  bool sessionHasEnded_ = false;
  CurlURLSession::TaskList::iterator placeInSession_;

  std::atomic<bool> isClaimed_ = false;
  std::atomic<std::int64_t> bytesSent_ = 0;
  std::atomic<std::int64_t> bytesReceived_ = 0;
  std::atomic<std::int64_t> bytesExpected_ = -1;
  std::atomic<bool> isSentReportPosted_ = false;

  // Owned by whoever has the task on its way.
  CurlOrigin origin_;
  HTTPHeaders conditions_;
  std::optional<CachedURLResponse> validated_;
  int redirects_ = 0;
  TimePoint resourceDeadline_{};

  mutable FutexLock lock_;  // guards what follows
  State state_ = State::suspended;
  std::shared_ptr<CurlURLSession> session_;  // null once it is over
  std::shared_ptr<const URLRequest> current_;
  URLSessionCompletionHandler handler_;
  std::shared_ptr<const HTTPURLResponse> response_;
  std::shared_ptr<const Error> error_;
  TimePoint resumedAt_{};
  URLSessionTaskMetrics metrics_;
  Permission permission_;
  std::optional<Outcome> awaitingPermission_;
  std::int64_t reportedSent_ = 0;
  Data stream_;  // streamed and not yet handed over
  bool isStreamPosted_ = false;
  bool isEarlyQuestionPosted_ = false;
  bool isPaused_ = false;
};

}  // namespace ombrix::platform::detail

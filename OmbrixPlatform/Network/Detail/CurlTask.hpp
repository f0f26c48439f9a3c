#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
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
    std::shared_ptr<const Data> cachedBody;  ///< instead of `body` when the cache gave it
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
  };

  CurlTask(std::shared_ptr<CurlURLSession> session, std::uint64_t identifier, URLRequest request,
           URLSessionCompletionHandler handler, bool sessionHasEnded);
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

  /// Where the session keeps it; set once, right after it was made.
  void setPlaceInSession(CurlURLSession::TaskList::iterator where) { placeInSession_ = where; }

  // For the network thread.

  LoopPlace place;

  [[nodiscard]] std::shared_ptr<const URLRequest> request() const;
  [[nodiscard]] const CurlOrigin& origin() const noexcept { return origin_; }
  [[nodiscard]] const HTTPHeaders& conditions() const noexcept { return conditions_; }
  [[nodiscard]] TimePoint resourceDeadline() const noexcept { return resourceDeadline_; }
  [[nodiscard]] bool isOver() const noexcept { return isClaimed_; }
  [[nodiscard]] bool isStreaming() const noexcept { return isStreaming_; }

  /// Set by `submit`, cleared when the loop lets go of it.
  std::atomic<bool> isWithLoop = false;

  void exchangeBegins();

  /// The header of the answer has come; `expectedBytes` -1: unknown.
  void headerCame(std::shared_ptr<const HTTPURLResponse> response, std::int64_t expectedBytes);

  /// Asks the delegate about the header now, since the body takes its time.
  void askAboutResponse();

  /// Whether the rest of the body has to wait: the delegate has not answered yet, or has not yet
  /// taken what came. When so, the loop is told once there is room again.
  [[nodiscard]] bool mustPause(std::size_t gathered);

  /// More of the body has come; streamed ones are handed over here.
  void bodyCame(std::size_t receivedBytes, Data& body);

  void bodySent(std::int64_t totalBytes);

  /// The exchange is over, well or badly.
  void exchangeEnded(Answer answer, const CurlExchange& exchange);
  void fail(std::shared_ptr<const Error> error);

 private:
  struct Outcome {
    std::optional<Data> data;
    std::shared_ptr<const HTTPURLResponse> response;
    std::shared_ptr<const Error> error;
  };
  enum class Permission : std::uint8_t { notAsked, asked, given };

  bool claim() noexcept { return !isClaimed_.exchange(true); }
  [[nodiscard]] std::shared_ptr<CurlURLSession> session() const;
  [[nodiscard]] URLCache* cache() const;

  void begin();
  void setRequest(URLRequest request);
  std::shared_ptr<const URLError> refusal() const;

  bool follow(Answer& answer);
  void followTo(URLRequest request);
  void redirectAnswered(std::optional<URLRequest> request, Answer answer);

  void conclude(Answer answer);
  Answer throughCache(Answer answer);
  void whenPermitted(Job job);
  void permitted();
  void handOverStream();
  void reportSent();

  void finish(Outcome outcome);
  void deliver(Outcome outcome);

  const std::uint64_t identifier_;
  const std::shared_ptr<const URLRequest> original_;
  const bool isStreaming_;
  const bool sessionHasEnded_;
  const bool hasDelegate_;
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
  bool isFromCache_ = false;
  int redirects_ = 0;
  TimePoint resumedAt_{};
  TimePoint resourceDeadline_{};

  std::int64_t reportedSent_ = 0;  // delegate queue

  mutable FutexLock lock_;  // guards what follows
  State state_ = State::suspended;
  std::shared_ptr<CurlURLSession> session_;  // null once it is over
  std::shared_ptr<const URLRequest> current_;
  URLSessionCompletionHandler handler_;
  std::shared_ptr<const HTTPURLResponse> response_;
  std::shared_ptr<const Error> error_;
  URLSessionTaskMetrics metrics_;
  Permission permission_;
  Job whenPermitted_;
  Data stream_;  // streamed and not yet handed over
  bool isStreamPosted_ = false;
  bool isPaused_ = false;
};

}  // namespace ombrix::platform::detail

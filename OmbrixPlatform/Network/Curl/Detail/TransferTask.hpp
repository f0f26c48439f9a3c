#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>

#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlURLSession.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/DelegateConversation.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/Transfer.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"

namespace ombrix::platform::detail {

/// A task of a session on libcurl: takes its request from the cache to the network and the
/// delegate, as `TransferRules` decides, until it has an outcome.
///
/// On its way it belongs to one thread at a time: the resuming one (validation, cache), the network
/// thread (the transfer), the delegate queue (questions, cache, delivery); redirects start over.
/// The first caller of `claim` decides the outcome: an answer, an error, or `cancel` at any moment.
class TransferTask final : public URLSessionUploadTask,
                           public TransferClient,
                           public std::enable_shared_from_this<TransferTask> {
 public:
  TransferTask(std::shared_ptr<CurlURLSession> session, std::uint64_t identifier,
               URLRequest request, URLSessionCompletionHandler handler);
  ~TransferTask() override;

  void resume() override;
  void cancel() override;
  void setDelegate(std::shared_ptr<URLSessionTaskDelegate> delegate) override;
  void receiveMore() override;
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

  // For the session, right after the task was made.

  /// Not called where the session has ended.
  void setPlaceInSession(CurlURLSession::TaskList::iterator where) { placeInSession_ = where; }

  // For the network thread.

  [[nodiscard]] bool isOver() const noexcept override { return isClaimed_; }
  void exchangeBegins(TransferClient::TimePoint now) override;
  void requestIsResent() override;
  void waitsForConnectivity() override;
  void bodySent(std::int64_t totalBytes) override;
  BodyUse headerCame(std::shared_ptr<const HTTPURLResponse> response,
                     std::int64_t expectedBytes) override;
  void bodyIsStillComing() override;
  [[nodiscard]] bool takesMore(std::size_t gatheredBytes) override;
  void bodyCame(DataView piece) override;
  [[nodiscard]] bool askAboutTrust(URLAuthenticationChallenge challenge,
                                   TrustAnswer answer) override;
  void answered(WireAnswer answer) override {
    failingWithoutMemory([&] { goOnWith(std::move(answer)); });
  }
  void failed(std::shared_ptr<const URLError> error) override;

 private:
  /// A whole answer, from the server or the cache.
  struct Answer {
    std::shared_ptr<const HTTPURLResponse> response;
    GatheredBody body;
    std::shared_ptr<const Data> cachedBody;  // instead of `body`: the cache has it
    bool isNew = false;                      // the cache has not seen it
    Date requestTime{};
    Date responseTime{};
  };

  [[nodiscard]] bool claim() noexcept { return !isClaimed_.exchange(true); }
  [[nodiscard]] std::shared_ptr<CurlURLSession> session() const;
  [[nodiscard]] std::shared_ptr<const URLRequest> request() const;
  [[nodiscard]] std::shared_ptr<URLSessionTaskDelegate> ownDelegate() const;
  [[nodiscard]] URLCache* cacheOf(const CurlURLSession& session) const;
  template <class Change>
  void changeMetrics(Change change) {
    const LockGuard lock(lock_);
    change(metrics_);
  }

  void begin(std::shared_ptr<const URLRequest> request);
  [[nodiscard]] bool answeredByCache(CurlURLSession& session, URLCache& cache,
                                     const URLRequest& request, HTTPHeaders& conditions);
  void load(CurlURLSession& session, const std::shared_ptr<Transfer>& transfer);
  void endTransfer(CurlURLSession& session);
  void resumeReceiving(CurlURLSession& session);

  void goOnWith(WireAnswer wire);
  void follow(CurlURLSession& session, Answer answer, URLRequest next);
  void followTo(CurlURLSession& session, URLRequest request);
  void loadAfresh(CurlURLSession& session);
  void postConclusion(CurlURLSession& session, Answer answer);
  void concludeKept();
  void conclude(Answer answer);
  void concludeWith(CurlURLSession& session, TaskOutcome outcome,
                    std::shared_ptr<const HTTPURLResponse> response);
  /// The outcome of an answer; empty when the task goes on elsewhere or is over.
  [[nodiscard]] std::optional<TaskOutcome> outcomeOf(CurlURLSession& session, Answer& answer);
  /// Runs a step whose use of memory the server determines; when memory is short, the task fails.
  template <class Work>
  void failingWithoutMemory(Work work) {
    try {
      work();
    } catch (const std::bad_alloc&) {
      fail(errorOfMissingMemory());
    }
  }
  Answer throughCache(URLCache& cache, Answer answer);
  /// Whether an answer means that the server cannot answer now, and the cache has one to replace
  /// it.
  [[nodiscard]] bool isReplaced(const HTTPURLResponse& response) const;
  void standIn(CurlURLSession& session);
  void goOnWithStored(CurlURLSession& session, Answer answer);
  void askAboutResponse(CurlURLSession& session);
  void askDelegate(CurlURLSession& session, std::shared_ptr<const HTTPURLResponse> response);
  class Permission;
  void permitted();
  void handOverStream();
  void reportSent();

  void fail(std::shared_ptr<const Error> error);
  void finish(TaskOutcome outcome);
  void end(TaskOutcome outcome);
  void deliver(TaskOutcome outcome);

  const std::uint64_t identifier_;
  const std::shared_ptr<const URLRequest> original_;
  const bool isStreaming_;  // no handler: everything goes to the delegate
  DelegateConversation conversation_;
  std::optional<CurlURLSession::TaskList::iterator> placeInSession_;

  std::atomic<bool> isClaimed_ = false;
  std::atomic<std::int64_t> bytesSent_ = 0;
  std::atomic<std::int64_t> bytesReceived_ = 0;
  std::atomic<std::int64_t> bytesExpected_ = -1;

  // Owned by the thread that handles the task at the moment.
  std::optional<CachedURLResponse> validated_;
  std::optional<CachedURLResponse> answerOnError_;
  std::optional<Answer> answer_;                       // on its way to the delegate queue
  std::shared_ptr<const HTTPURLResponse> passedOver_;  // its token still goes to the caller
  int redirects_ = 0;
  TransferClient::TimePoint deadline_{};

  mutable FutexLock lock_;
  State state_ OMBRIX_GUARDED_BY(lock_) = State::suspended;
  std::shared_ptr<CurlURLSession> session_ OMBRIX_GUARDED_BY(lock_);  // null once it is over
  std::shared_ptr<Transfer> transfer_ OMBRIX_GUARDED_BY(lock_);  // null while none is under way
  std::shared_ptr<const URLRequest> current_ OMBRIX_GUARDED_BY(lock_);
  URLSessionCompletionHandler handler_ OMBRIX_GUARDED_BY(lock_);
  // Null once it is over.
  std::shared_ptr<URLSessionTaskDelegate> ownDelegate_ OMBRIX_GUARDED_BY(lock_);
  std::shared_ptr<const HTTPURLResponse> response_ OMBRIX_GUARDED_BY(lock_);
  std::shared_ptr<const Error> error_ OMBRIX_GUARDED_BY(lock_);
  TransferClient::TimePoint resumedAt_ OMBRIX_GUARDED_BY(lock_){};
  URLSessionTaskMetrics metrics_ OMBRIX_GUARDED_BY(lock_);
};

}  // namespace ombrix::platform::detail

#include <utility>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/AnswerOnce.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/Redirect.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferTask.hpp"

namespace ombrix::platform::detail {

using FetchType = URLSessionTaskMetrics::FetchType;

// Redirects.

/// Asks the delegate where to go next. On the network thread, or the thread that asked the cache.
void TransferTask::follow(CurlURLSession& session, Answer answer, URLRequest next) {
  ++redirects_;
  changeMetrics([&](auto& metrics) { metrics.redirectCount = redirects_; });
  auto kept = session.shared_from_this();
  const auto delegate = session.delegate();
  if (!delegate) {
    if (cacheOf(session) == nullptr || !answer.isNew) return followTo(session, std::move(next));
    ThreadPool::shared().post([self = shared_from_this(), kept = std::move(kept),
                               answer = std::move(answer), next = std::move(next)]() mutable {
      self->failingWithoutMemory([&] {
        self->throughCache(*self->cacheOf(*kept), std::move(answer));
        self->followTo(*kept, std::move(next));
      });
    });
    return;
  }
  session.post([self = shared_from_this(), kept = std::move(kept), delegate,
                answer = std::move(answer), next = std::move(next)]() mutable {
    if (self->isOver()) return;
    URLCache* cache = self->cacheOf(*kept);
    if (cache != nullptr && answer.isNew) {
      self->failingWithoutMemory([&] { answer = self->throughCache(*cache, std::move(answer)); });
      if (self->isOver()) return;
    }
    const auto response = answer.response;
    const auto byDefault = next;
    AnswerOnce<std::optional<URLRequest>> once(
        [self, kept, answer = std::move(answer)](std::optional<URLRequest> request) mutable {
          if (request) {
            self->followTo(*kept, *std::move(request));
          } else {
            self->postConclusion(*kept, std::move(answer));
          }
        },
        byDefault);
    delegate->willPerformHTTPRedirection(
        *kept, *self, response, std::move(next),
        [once = std::move(once)](std::optional<URLRequest> request) mutable {
          once(std::move(request));
        });
  });
}

void TransferTask::followTo(CurlURLSession& session, URLRequest request) {
  auto next = completed(std::make_shared<const URLRequest>(std::move(request)),
                        session.configuration(), original_->url);
  if (cacheOf(session) == nullptr) return begin(std::move(next));
  // The cache may read the disk, for which the calling thread must not wait.
  ThreadPool::shared().post(
      [self = shared_from_this(), next = std::move(next)] { self->begin(next); });
}

/// Asks once more without the cache's conditions: the server has confirmed another answer than the
/// kept one, and the caller, who set no conditions, cannot use that.
void TransferTask::loadAfresh(CurlURLSession& session) {
  URLRequest again = *request();
  again.cachePolicy = URLRequest::CachePolicy::reloadIgnoringLocalCacheData;
  followTo(session, std::move(again));
}

// The answer; delegate queue.

void TransferTask::postConclusion(CurlURLSession& session, Answer answer) {
  answer_ = std::move(answer);
  session.post([self = shared_from_this()] { self->concludeKept(); });
}

void TransferTask::concludeKept() { conclude(*std::exchange(answer_, std::nullopt)); }

void TransferTask::conclude(Answer answer) {
  const auto session = this->session();
  if (!session || isOver()) return;
  reportSent();
  std::optional<TaskOutcome> outcome;
  failingWithoutMemory([&] { outcome = outcomeOf(*session, answer); });
  if (!outcome) return;
  {
    const LockGuard lock(lock_);
    response_ = answer.response;
  }
  concludeWith(*session, *std::move(outcome), std::move(answer.response));
}

/// Delivers an outcome, once the delegate has allowed the answer that it is about.
void TransferTask::concludeWith(CurlURLSession& session, TaskOutcome outcome,
                                std::shared_ptr<const HTTPURLResponse> response) {
  if (conversation_.mustAsk()) askDelegate(session, std::move(response));
  if (auto allowed = conversation_.conclude(std::move(outcome)); allowed && claim()) {
    deliver(*std::move(allowed));
  }
}

std::optional<TaskOutcome> TransferTask::outcomeOf(CurlURLSession& session, Answer& answer) {
  if (answer.isNew && isReplaced(*answer.response)) {
    standIn(session);
    return std::nullopt;
  }
  URLCache* cache = cacheOf(session);
  if (cache != nullptr && answer.isNew) {
    const bool wasRedirect = isRedirect(*answer.response);
    answer = throughCache(*cache, std::move(answer));
    const bool isUnconfirmed = validated_ && answer.response->statusCode() == 304;
    auto next = afterAnswer(*request(), *answer.response, redirects_, isUnconfirmed);
    if (next.step == AfterAnswer::Step::loadAfresh) {
      passedOver_ = std::move(answer.response);
      loadAfresh(session);
      return std::nullopt;
    }
    if (!wasRedirect && next.step == AfterAnswer::Step::fail) {
      fail(std::move(next.error));
      return std::nullopt;
    }
    if (!wasRedirect && next.step == AfterAnswer::Step::follow) {
      follow(session, std::move(answer), *std::move(next.next));
      return std::nullopt;
    }
  }
  TaskOutcome outcome{.response = answer.response};
  if (isStreaming_) {
    // Only a redirect that is not followed still holds its body.
    (void)conversation_.keep(answer.body.takeBytes());
  } else if (answer.cachedBody) {
    if (!answer.cachedBody->empty()) outcome.data = *answer.cachedBody;
  } else if (answer.body.size() > 0) {
    outcome.data = answer.body.takeBytes();
  }
  return outcome;
}

bool TransferTask::isReplaced(const HTTPURLResponse& response) const {
  return answerOnError_ && URLCache::isServerError(response.statusCode()) &&
         !request()->wantsEachAnswer;
}

/// Goes on with the cache's answer, which replaces the one that the server cannot give.
void TransferTask::standIn(CurlURLSession& session) {
  auto stored = *std::exchange(answerOnError_, std::nullopt);
  goOnWithStored(session,
                 {.response = std::move(stored.response), .cachedBody = std::move(stored.data)});
}

/// Handles an answer from the cache: follows a redirect, or hands the answer over.
void TransferTask::goOnWithStored(CurlURLSession& session, Answer answer) {
  changeMetrics([](auto& metrics) { metrics.fetchType = FetchType::localCache; });
  auto next = afterAnswer(*request(), *answer.response, redirects_, false);
  if (next.step == AfterAnswer::Step::follow) {
    follow(session, std::move(answer), *std::move(next.next));
  } else if (next.step == AfterAnswer::Step::fail) {
    fail(std::move(next.error));
  } else {
    postConclusion(session, std::move(answer));
  }
}

/// Lets the cache keep the answer, or complete it when the server has only confirmed the kept one.
TransferTask::Answer TransferTask::throughCache(URLCache& cache, Answer answer) {
  const bool wasConfirmed = validated_ && answer.response->statusCode() == 304;
  const auto body = std::make_shared<Data>(answer.body.takeBytes());
  CachedURLResponse kept =
      cache.received(*request(), answer.requestTime, answer.responseTime,
                     {std::move(answer.response), body}, validated_ ? &*validated_ : nullptr);
  const bool isConfirmed = wasConfirmed && kept.response->statusCode() != 304;
  if (isConfirmed) {
    changeMetrics([](auto& metrics) { metrics.fetchType = FetchType::validated; });
  }
  answer.response = std::move(kept.response);
  answer.isNew = false;
  const bool isItsOwn = kept.data == body;
  if (isItsOwn) kept.data = nullptr;
  if (isItsOwn && body.use_count() == 1) {
    answer.body.putBack(std::move(*body));  // the cache has not kept it
  } else {
    answer.cachedBody = isItsOwn ? body : std::move(kept.data);
  }
  return answer;
}

void TransferTask::askAboutResponse(CurlURLSession& session) {
  if (isOver() || !conversation_.mustAsk()) return;
  askDelegate(session, response());
}

/// Takes the delegate's answer to the question about a response: the first one, or "allow" where it
/// is dropped without. So small that it needs no room of its own on its way.
class TransferTask::Permission {
 public:
  using Disposition = URLSessionDelegate::ResponseDisposition;

  explicit Permission(std::shared_ptr<TransferTask> task) : task_(std::move(task)) {}
  Permission(Permission&&) noexcept = default;
  Permission& operator=(Permission&&) = delete;
  ~Permission() { (*this)(Disposition::allow); }

  void operator()(Disposition disposition) {
    const auto task = std::exchange(task_, nullptr);
    if (task) disposition == Disposition::allow ? task->permitted() : task->cancel();
  }

 private:
  std::shared_ptr<TransferTask> task_;
};

void TransferTask::askDelegate(CurlURLSession& session,
                               std::shared_ptr<const HTTPURLResponse> response) {
  Permission permission(shared_from_this());
  const auto delegate = session.delegate();
  if (!delegate) return;  // without one, the answer is allowed
  delegate->didReceiveResponse(session, *this, response, std::move(permission));
}

/// The delegate allows the answer; any thread.
void TransferTask::permitted() {
  auto next = conversation_.permit();
  const auto session = this->session();
  if (!session) return;
  if (next.mustHandOver) session->post([self = shared_from_this()] { self->handOverStream(); });
  if (next.mustResume) resumeReceiving(*session);
  if (next.outcome) finish(*std::move(next.outcome));
}

void TransferTask::handOverStream() {
  const auto session = this->session();
  const Data piece = conversation_.take();
  if (!session || piece.empty() || state() == State::canceling) return;
  auto flow = URLSessionTaskDelegate::Flow::goOn;
  if (const auto own = ownDelegate()) {
    flow = own->didReceiveData(*this, piece);
  } else if (const auto delegate = session->delegate()) {
    delegate->didReceiveData(*session, *this, piece);
  }
  if (conversation_.taken(flow == URLSessionTaskDelegate::Flow::goOn)) resumeReceiving(*session);
}

void TransferTask::receiveMore() {
  const auto session = this->session();
  if (!session) return;
  const auto next = conversation_.release();
  if (next.mustHandOver) session->post([self = shared_from_this()] { self->handOverStream(); });
  if (next.mustResume) resumeReceiving(*session);
}

void TransferTask::reportSent() {
  if (isOver()) return;
  const std::int64_t total = bytesSent_;
  const std::int64_t more = conversation_.report(total);
  const auto session = more > 0 ? this->session() : nullptr;
  const auto own = session ? ownDelegate() : nullptr;
  if (own) return own->didSendBodyData(*this, total, countOfBytesExpectedToSend());
  const auto delegate = session ? session->delegate() : nullptr;
  if (!delegate) return;
  delegate->didSendBodyData(*session, *this, more, total, countOfBytesExpectedToSend());
}

}  // namespace ombrix::platform::detail

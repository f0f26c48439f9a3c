#include "OmbrixPlatform/Network/Curl/Detail/TransferTask.hpp"

#include <mutex>
#include <utility>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/AnswerOnce.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/Redirect.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"

namespace ombrix::platform::detail {
namespace {

using TimePoint = TransferClient::TimePoint;
using FetchType = URLSessionTaskMetrics::FetchType;

TimePoint addSaturating(TimePoint point, std::chrono::duration<double> span) {
  const std::chrono::duration<double> longest = TimePoint::max() - point;
  if (!(span < longest)) return TimePoint::max();
  return point + std::chrono::duration_cast<TimePoint::duration>(span);
}

std::shared_ptr<const URLError> errorOfConstrainedPath() {
  return std::make_shared<const URLError>(
      URLError::Code::notConnectedToInternet,
      "the network is constrained, and the request may not use such a network",
      URLError::NetworkUnavailableReason::constrained);
}

}  // namespace

TransferTask::TransferTask(std::shared_ptr<CurlURLSession> session, std::uint64_t identifier,
                           URLRequest request, URLSessionCompletionHandler handler)
    : identifier_(identifier),
      original_(std::make_shared<const URLRequest>(std::move(request))),
      isStreaming_(handler == nullptr),
      conversation_(session->delegate() != nullptr, isStreaming_),
      session_(std::move(session)),
      current_(original_),
      handler_(std::move(handler)) {}

TransferTask::~TransferTask() {
  // Only a task that was never resumed still knows its session here.
  if (session_) session_->taskIsOver(placeInSession_);
}

// What callers ask.

std::shared_ptr<CurlURLSession> TransferTask::session() const {
  const std::lock_guard lock(lock_);
  return session_;
}

std::shared_ptr<const URLRequest> TransferTask::request() const {
  const std::lock_guard lock(lock_);
  return current_;
}

URLSessionTask::State TransferTask::state() const {
  const std::lock_guard lock(lock_);
  return state_;
}

std::shared_ptr<const HTTPURLResponse> TransferTask::response() const {
  const std::lock_guard lock(lock_);
  return response_;
}

std::shared_ptr<const Error> TransferTask::error() const {
  const std::lock_guard lock(lock_);
  return error_;
}

URLSessionTaskMetrics TransferTask::metrics() const {
  const std::lock_guard lock(lock_);
  return metrics_;
}

std::int64_t TransferTask::countOfBytesExpectedToSend() const {
  const auto current = request();
  return current->httpBody ? static_cast<std::int64_t>(current->httpBody->size()) : 0;
}

template <class Change>
void TransferTask::changeMetrics(Change change) {
  const std::lock_guard lock(lock_);
  change(metrics_);
}

URLCache* TransferTask::cacheOf(const CurlURLSession& session) const {
  return isStreaming_ ? nullptr : session.configuration().urlCache.get();
}

// The way to the network.

void TransferTask::resume() {
  std::shared_ptr<CurlURLSession> session;
  {
    const std::lock_guard lock(lock_);
    if (state_ != State::suspended || !session_) return;
    state_ = State::running;
    session = session_;
    resumedAt_ = session->clock()->steadyNow();
    deadline_ = addSaturating(resumedAt_, session->configuration().timeoutIntervalForResource);
  }
  if (isForkedChild()) {
    // No queue has a thread here: the handler is called at once, or never.
    if (claim()) {
      deliver({.error = makeURLError(URLError::Code::cannotLoadFromNetwork,
                                     "a forked process has no sessions")});
    }
    return;
  }
  begin(completed(original_, session->configuration(), original_->url));
}

/// Takes a request to the cache or to the network.
void TransferTask::begin(std::shared_ptr<const URLRequest> request) {
  const auto session = this->session();
  if (!session || isOver()) return;
  {
    const std::lock_guard lock(lock_);
    current_ = request;
  }
  if (sessionHasEnded_) {
    return fail(makeURLError(URLError::Code::cancelled, "the session has ended"));
  }
  auto origin = URLOrigin::of(request->url);
  if (auto error = refusal(*request, origin)) return fail(std::move(error));
  HTTPHeaders conditions;
  validated_.reset();
  answerOnError_.reset();
  URLCache* cache = cacheOf(*session);
  if (cache != nullptr && answeredByCache(*session, *cache, *request, conditions)) return;

  const auto delegate = session->delegate();
  const bool isJudged = origin->isSecure && delegate && delegate->judgesServers(origin->host);
  const auto transfer = std::make_shared<Transfer>(
      shared_from_this(), request, std::move(conditions), *std::move(origin), deadline_, isJudged);
  const bool mayBeConstrained = request->allowsConstrainedNetworkAccess &&
                                session->configuration().allowsConstrainedNetworkAccess;
  if (mayBeConstrained) return load(*session, transfer);
  session->whenPathIsKnown([self = shared_from_this(), session, transfer] {
    if (self->isOver()) return;
    if (session->isConstrained()) {
      self->fail(errorOfConstrainedPath());
    } else {
      self->load(*session, transfer);
    }
  });
}

/// Asks the cache; true when that has answered or refused.
bool TransferTask::answeredByCache(CurlURLSession& session, URLCache& cache,
                                   const URLRequest& request, HTTPHeaders& conditions) {
  URLCache::Decision decision = cache.decide(request);
  if (decision.mustRevalidateBehind) {
    session.dataTask(URLCache::revalidation(request), [](auto&&...) {})->resume();
  }
  answerOnError_ = std::move(decision.answerOnError);
  using enum URLCache::Decision::Kind;
  switch (decision.kind) {
    case serve:
      goOnWithStored(session, {.response = std::move(decision.answer->response),
                               .cachedBody = std::move(decision.answer->data)});
      return true;
    case unavailable:
      fail(makeURLError(URLError::Code::resourceUnavailable, "the cache holds no answer"));
      return true;
    case validate:
      validated_ = std::move(decision.answer);
      conditions = std::move(decision.conditions);
      return false;
    case load:
      return false;
  }
  return false;
}

void TransferTask::load(CurlURLSession& session, const std::shared_ptr<Transfer>& transfer) {
  {
    const std::lock_guard lock(lock_);
    transfer_ = transfer;
  }
  if (!session.loop().submit(transfer)) {
    fail(makeURLError(URLError::Code::cannotLoadFromNetwork,
                      "the network thread cannot be started"));
  }
}

void TransferTask::endTransfer(CurlURLSession& session) {
  std::shared_ptr<Transfer> transfer;
  {
    const std::lock_guard lock(lock_);
    transfer = std::exchange(transfer_, nullptr);
  }
  if (transfer) session.loop().abandon(std::move(transfer));
}

void TransferTask::resumeReceiving(CurlURLSession& session) {
  std::shared_ptr<Transfer> transfer;
  {
    const std::lock_guard lock(lock_);
    transfer = transfer_;
  }
  if (transfer) session.loop().resumeReceiving(std::move(transfer));
}

// What the network thread tells.

void TransferTask::exchangeBegins(TimePoint now) {
  bytesSent_ = 0;
  bytesReceived_ = 0;
  bytesExpected_ = -1;
  changeMetrics([&](auto& metrics) { metrics.waiting = now - resumedAt_; });
}

void TransferTask::requestIsResent() {
  changeMetrics([](auto& metrics) { ++metrics.resendCount; });
}

void TransferTask::waitsForConnectivity() {
  const auto session = this->session();
  if (!session) return;
  session->watchPath();
  if (!answerOnError_) return;
  endTransfer(*session);
  standIn(*session);
}

void TransferTask::bodySent(std::int64_t totalBytes) {
  bytesSent_ = totalBytes;
  if (!conversation_.mustReport()) return;
  const auto session = this->session();
  if (session) session->post([self = shared_from_this()] { self->reportSent(); });
}

TransferClient::BodyUse TransferTask::headerCame(std::shared_ptr<const HTTPURLResponse> response,
                                                 std::int64_t expectedBytes) {
  bytesExpected_ = expectedBytes;
  const bool isElsewhere = isRedirect(*response);
  const bool isConfirmation = validated_ && response->statusCode() == 304;
  conversation_.headerCame(!isElsewhere && !isConfirmation && !isReplaced(*response));
  response = handedOver(std::move(response), original_->url);
  const std::lock_guard lock(lock_);
  response_ = std::move(response);
  return isStreaming_ && !isElsewhere ? BodyUse::stream : BodyUse::gather;
}

void TransferTask::bodyIsStillComing() {
  if (!conversation_.mustAskEarly()) return;
  const auto session = this->session();
  if (!session) return;
  session->post([self = shared_from_this(), session] { self->askAboutResponse(*session); });
}

bool TransferTask::takesMore(std::size_t gatheredBytes) {
  return conversation_.takesMore(gatheredBytes);
}

void TransferTask::bodyCame(DataView piece) {
  bytesReceived_ += static_cast<std::int64_t>(piece.size());
  if (!isStreaming_ || isRedirect(*response())) return;
  if (!conversation_.keep(piece)) return;
  const auto session = this->session();
  if (session) session->post([self = shared_from_this()] { self->handOverStream(); });
}

bool TransferTask::askAboutTrust(URLAuthenticationChallenge challenge, TrustAnswer answer) {
  using Disposition = URLSessionDelegate::AuthChallengeDisposition;
  using Reply = std::pair<Disposition, std::optional<URLCredential>>;
  const auto session = this->session();
  if (!session) return false;
  const auto delegate = session->delegate();
  if (!delegate) {
    answer(CurlTrust::Decision::standard);
    return true;
  }
  auto decide =
      [answer = std::move(answer),
       leaf = challenge.protectionSpace.serverTrust->certificates.front()](Reply reply) mutable {
        const auto& [disposition, credential] = reply;
        const bool isThatOne = credential && !credential->trust.certificates.empty() &&
                               credential->trust.certificates.front() == leaf;
        if (disposition == Disposition::cancelAuthenticationChallenge) {
          answer(std::nullopt);
        } else {
          answer(disposition == Disposition::useCredential && isThatOne
                     ? CurlTrust::Decision::accept
                     : CurlTrust::Decision::standard);
        }
      };
  session->post([session, delegate, challenge = std::move(challenge),
                 once = AnswerOnce<Reply>(std::move(decide), {Disposition::performDefaultHandling,
                                                              std::nullopt})]() mutable {
    delegate->didReceiveChallenge(
        *session, challenge,
        [once = std::move(once)](auto disposition,
                                 std::optional<URLCredential> credential) mutable {
          once({disposition, std::move(credential)});
        });
  });
  return true;
}

void TransferTask::answered(WireAnswer wire) {
  const auto session = this->session();
  if (!session) return;
  bytesSent_ = wire.bytesSent;
  std::shared_ptr<const URLRequest> current;
  {
    const std::lock_guard lock(lock_);
    transfer_ = nullptr;
    current = current_;
    wire.steps.fetchType = FetchType::networkLoad;
    wire.steps.waiting = metrics_.waiting;
    wire.steps.redirectCount = metrics_.redirectCount;
    wire.steps.resendCount = metrics_.resendCount;
    metrics_ = std::move(wire.steps);
  }
  Answer answer{.response = std::move(wire.response),
                .body = std::move(wire.body),
                .isNew = true,
                .requestTime = wire.requestTime,
                .responseTime = wire.responseTime};
  auto next = afterAnswer(*current, *answer.response, redirects_, false);
  switch (next.step) {
    case AfterAnswer::Step::follow:
      return follow(*session, std::move(answer), *std::move(next.next));
    case AfterAnswer::Step::fail:
      return fail(std::move(next.error));
    default:
      answer.response = handedOver(std::move(answer.response), original_->url);
      session->loop().postTogether(
          [self = shared_from_this(), answer = std::move(answer)]() mutable {
            self->conclude(std::move(answer));
          });
  }
}

void TransferTask::failed(std::shared_ptr<const URLError> error) {
  const auto session = this->session();
  if (!session || !answerOnError_ || !isUnreachable(*error)) return fail(std::move(error));
  {
    const std::lock_guard lock(lock_);
    transfer_ = nullptr;
  }
  standIn(*session);
}

// Redirects.

/// Asks the delegate where to go next; the network thread, or whoever asked the cache.
void TransferTask::follow(CurlURLSession& session, Answer answer, URLRequest next) {
  ++redirects_;
  changeMetrics([&](auto& metrics) { metrics.redirectCount = redirects_; });
  auto kept = session.shared_from_this();
  const auto delegate = session.delegate();
  if (!delegate) {
    if (cacheOf(session) == nullptr || !answer.isNew) return followTo(session, std::move(next));
    ThreadPool::shared().post([self = shared_from_this(), kept = std::move(kept),
                               answer = std::move(answer), next = std::move(next)]() mutable {
      self->throughCache(*self->cacheOf(*kept), std::move(answer));
      self->followTo(*kept, std::move(next));
    });
    return;
  }
  session.post([self = shared_from_this(), kept = std::move(kept), delegate,
                answer = std::move(answer), next = std::move(next)]() mutable {
    if (self->isOver()) return;
    URLCache* cache = self->cacheOf(*kept);
    if (cache != nullptr && answer.isNew) answer = self->throughCache(*cache, std::move(answer));
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
  // The cache may look at the disk, which is not for the thread that calls.
  ThreadPool::shared().post(
      [self = shared_from_this(), next = std::move(next)] { self->begin(next); });
}

/// Asks once more without the cache's conditions: the server has confirmed something else than what
/// is kept, and the caller, who set none, has no use for that.
void TransferTask::loadAfresh(CurlURLSession& session) {
  URLRequest again = *request();
  again.cachePolicy = URLRequest::CachePolicy::reloadIgnoringLocalCacheData;
  followTo(session, std::move(again));
}

// The answer; delegate queue.

void TransferTask::postConclusion(CurlURLSession& session, Answer answer) {
  session.post([self = shared_from_this(), answer = std::move(answer)]() mutable {
    self->conclude(std::move(answer));
  });
}

void TransferTask::conclude(Answer answer) {
  const auto session = this->session();
  if (!session || isOver()) return;
  reportSent();
  if (answer.isNew && isReplaced(*answer.response)) return standIn(*session);
  URLCache* cache = cacheOf(*session);
  if (cache != nullptr && answer.isNew) {
    const bool wasRedirect = isRedirect(*answer.response);
    answer = throughCache(*cache, std::move(answer));
    const bool isUnconfirmed = validated_ && answer.response->statusCode() == 304;
    auto next = afterAnswer(*request(), *answer.response, redirects_, isUnconfirmed);
    if (next.step == AfterAnswer::Step::loadAfresh) return loadAfresh(*session);
    if (!wasRedirect && next.step == AfterAnswer::Step::fail) return fail(std::move(next.error));
    if (!wasRedirect && next.step == AfterAnswer::Step::follow) {
      return follow(*session, std::move(answer), *std::move(next.next));
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
  {
    const std::lock_guard lock(lock_);
    response_ = answer.response;
  }
  if (conversation_.mustAsk()) askDelegate(*session, std::move(answer.response));
  if (auto allowed = conversation_.conclude(std::move(outcome)); allowed && claim()) {
    deliver(*std::move(allowed));
  }
}

bool TransferTask::isReplaced(const HTTPURLResponse& response) const {
  return answerOnError_ && URLCache::isServerError(response.statusCode());
}

/// Goes on with what the cache has in the place of an answer that the server cannot give.
void TransferTask::standIn(CurlURLSession& session) {
  auto stored = *std::exchange(answerOnError_, std::nullopt);
  goOnWithStored(session,
                 {.response = std::move(stored.response), .cachedBody = std::move(stored.data)});
}

/// Follows an answer of the cache, or hands it over.
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

/// Lets the cache keep the answer, and complete it when the server has only confirmed what is kept.
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

void TransferTask::askDelegate(CurlURLSession& session,
                               std::shared_ptr<const HTTPURLResponse> response) {
  using enum URLSessionDelegate::ResponseDisposition;
  AnswerOnce<URLSessionDelegate::ResponseDisposition> once(
      [self = shared_from_this(), kept = session.shared_from_this()](auto disposition) {
        if (disposition == allow) {
          self->permitted(*kept);
        } else {
          self->cancel();
        }
      },
      allow);
  const auto delegate = session.delegate();
  if (!delegate) return;  // which answers by itself
  delegate->didReceiveResponse(
      session, *this, response,
      [once = std::move(once)](auto disposition) mutable { once(disposition); });
}

/// The delegate allows the answer; any thread.
void TransferTask::permitted(CurlURLSession& session) {
  auto next = conversation_.permit();
  if (next.mustHandOver) session.post([self = shared_from_this()] { self->handOverStream(); });
  if (next.mustResume) resumeReceiving(session);
  if (next.outcome) finish(*std::move(next.outcome));
}

void TransferTask::handOverStream() {
  const auto session = this->session();
  const Data piece = conversation_.take();
  const auto delegate = session ? session->delegate() : nullptr;
  if (!delegate || piece.empty() || state() == State::canceling) return;
  delegate->didReceiveData(*session, *this, piece);
  if (conversation_.taken()) resumeReceiving(*session);
}

void TransferTask::reportSent() {
  if (isOver()) return;
  const std::int64_t total = bytesSent_;
  const std::int64_t more = conversation_.report(total);
  const auto session = more > 0 ? this->session() : nullptr;
  const auto delegate = session ? session->delegate() : nullptr;
  if (!delegate) return;
  delegate->didSendBodyData(*session, *this, more, total, countOfBytesExpectedToSend());
}

// The end.

void TransferTask::cancel() {
  {
    const std::lock_guard lock(lock_);
    if (state_ == State::completed || isClaimed_) return;
    state_ = State::canceling;
  }
  fail(makeURLError(URLError::Code::cancelled, "the transfer was cancelled"));
}

/// The task ends with an error, unless it is over. Any thread.
void TransferTask::fail(std::shared_ptr<const Error> error) { finish({.error = std::move(error)}); }

void TransferTask::finish(TaskOutcome outcome) {
  if (!claim()) return;
  const auto session = this->session();
  if (!session) return;
  // What is under way ends now, not when the delegate queue gets to it.
  endTransfer(*session);
  session->post([self = shared_from_this(), outcome = std::move(outcome)]() mutable {
    self->deliver(std::move(outcome));
  });
}

/// Hands the outcome over, on the delegate queue; called by whoever made the claim.
void TransferTask::deliver(TaskOutcome outcome) {
  const auto session = this->session();
  if (!session) return;
  endTransfer(*session);
  if (isStreaming_) handOverStream();
  URLSessionCompletionHandler handler;
  URLSessionTaskMetrics metrics;
  {
    const std::lock_guard lock(lock_);
    if (resumedAt_ != TimePoint{}) metrics_.total = session->clock()->steadyNow() - resumedAt_;
    state_ = State::completed;
    error_ = outcome.error;
    metrics = metrics_;
    handler = std::move(handler_);
  }
  conversation_.end();
  const auto delegate = session->delegate();
  if (delegate) delegate->didFinishCollectingMetrics(*session, *this, metrics);
  if (handler) {
    handler(std::move(outcome.data), std::move(outcome.response), std::move(outcome.error));
    handler = nullptr;
  } else if (delegate) {
    delegate->didComplete(*session, *this, outcome.error);
  }
  {
    const std::lock_guard lock(lock_);
    session_ = nullptr;
  }
  session->taskIsOver(placeInSession_);
}

}  // namespace ombrix::platform::detail

#include "OmbrixPlatform/Network/Curl/Detail/TransferTask.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"

namespace ombrix::platform::detail {
namespace {

using TimePoint = TransferClient::TimePoint;

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
  if (session_ && placeInSession_) session_->taskIsOver(*placeInSession_);
}

// Called by users of the task.

std::shared_ptr<CurlURLSession> TransferTask::session() const {
  const LockGuard lock(lock_);
  return session_;
}

std::shared_ptr<const URLRequest> TransferTask::request() const {
  const LockGuard lock(lock_);
  return current_;
}

std::shared_ptr<URLSessionTaskDelegate> TransferTask::ownDelegate() const {
  const LockGuard lock(lock_);
  return ownDelegate_;
}

void TransferTask::setDelegate(std::shared_ptr<URLSessionTaskDelegate> delegate) {
  const LockGuard lock(lock_);
  if (state_ != State::suspended) return;
  conversation_.addDelegate();
  ownDelegate_.swap(delegate);
}

URLSessionTask::State TransferTask::state() const {
  const LockGuard lock(lock_);
  return state_;
}

std::shared_ptr<const HTTPURLResponse> TransferTask::response() const {
  const LockGuard lock(lock_);
  return response_;
}

std::shared_ptr<const Error> TransferTask::error() const {
  const LockGuard lock(lock_);
  return error_;
}

URLSessionTaskMetrics TransferTask::metrics() const {
  const LockGuard lock(lock_);
  return metrics_;
}

std::int64_t TransferTask::countOfBytesExpectedToSend() const {
  const auto current = request();
  if (current->httpBodySource) return current->httpBodySource->length().value_or(-1).value_or(-1);
  return current->httpBody ? static_cast<std::int64_t>(current->httpBody->size()) : 0;
}

URLCache* TransferTask::cacheOf(const CurlURLSession& session) const {
  return isStreaming_ ? nullptr : session.configuration().urlCache.get();
}

// The way to the network.

void TransferTask::resume() {
  std::shared_ptr<CurlURLSession> session;
  {
    const LockGuard lock(lock_);
    if (state_ != State::suspended || !session_) return;
    state_ = State::running;
    session = session_;
    resumedAt_ = session->clock()->steadyNow();
    const auto limit = session->configuration().timeoutIntervalForResource;
    deadline_ = addSaturating(resumedAt_,
                              std::min(limit, original_->resourceTimeoutInterval.value_or(limit)));
  }
  if (isForkedChild()) {
    return fail(
        makeURLError(URLError::Code::cannotLoadFromNetwork, "a forked process has no sessions"));
  }
  begin(completed(original_, session->configuration(), original_->url));
}

/// Takes a request to the cache or to the network.
void TransferTask::begin(std::shared_ptr<const URLRequest> request) {
  const auto session = this->session();
  if (!session || isOver()) return;
  {
    const LockGuard lock(lock_);
    current_ = request;
  }
  if (!placeInSession_) {
    return fail(makeURLError(URLError::Code::cancelled, "the session has ended"));
  }
  auto origin = URLOrigin::of(request->url);
  if (auto error = refusal(*request, origin)) return fail(std::move(error));
  if (request->httpBodySource) {
    const auto length = request->httpBodySource->length();
    if (!length) return fail(std::make_shared<const URLError>(length.error()));
  }
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

// The end.

void TransferTask::cancel() {
  {
    const LockGuard lock(lock_);
    // One decision: whoever sees this state knows that no answer will be handed over.
    if (!claim()) return;
    state_ = State::canceling;
  }
  end({.error = makeURLError(URLError::Code::cancelled, "the transfer was cancelled")});
}

/// The task ends with an error, unless it is over. Any thread.
void TransferTask::fail(std::shared_ptr<const Error> error) { finish({.error = std::move(error)}); }

void TransferTask::finish(TaskOutcome outcome) {
  if (claim()) end(std::move(outcome));
}

/// Has the outcome handed over; called by the thread that made the claim.
void TransferTask::end(TaskOutcome outcome) {
  const auto session = this->session();
  if (!session) return;
  if (isForkedChild()) return deliver(std::move(outcome));  // no queue has a thread here
  // The transfer ends now, not when the delegate queue gets to it.
  endTransfer(*session);
  session->post([self = shared_from_this(), outcome = std::move(outcome)]() mutable {
    self->deliver(std::move(outcome));
  });
}

/// Hands the outcome over, on the delegate queue; called by the thread that made the claim.
void TransferTask::deliver(TaskOutcome outcome) {
  const auto session = this->session();
  if (!session) return;
  endTransfer(*session);
  if (isStreaming_) handOverStream();
  URLSessionCompletionHandler handler;
  std::shared_ptr<URLSessionTaskDelegate> own;
  URLSessionTaskMetrics metrics;
  {
    const LockGuard lock(lock_);
    own.swap(ownDelegate_);
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
  } else if (own) {
    own->didComplete(*this, outcome.error);
  } else if (delegate) {
    delegate->didComplete(*session, *this, outcome.error);
  }
  {
    const LockGuard lock(lock_);
    session_ = nullptr;
  }
  if (placeInSession_) session->taskIsOver(*placeInSession_);
}

}  // namespace ombrix::platform::detail

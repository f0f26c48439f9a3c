#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Network/Detail/AnswerOnce.hpp"
#include "OmbrixPlatform/Network/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Detail/CurlExchange.hpp"
#include "OmbrixPlatform/Network/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Detail/CurlTask.hpp"
#include "OmbrixPlatform/Network/Detail/Redirect.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr int kMaximumRedirects = 20;
// So much of a body is received before the delegate has allowed the answer.
constexpr std::size_t kBytesBeforePermission = 64 * 1024;
// So much of a streamed body waits for the delegate.
constexpr std::size_t kStreamedBytesKept = 256 * 1024;

CurlTask::TimePoint addSaturating(CurlTask::TimePoint point, std::chrono::duration<double> span) {
  const std::chrono::duration<double> longest = CurlTask::TimePoint::max() - point;
  if (!(span < longest)) return CurlTask::TimePoint::max();
  return point + std::chrono::duration_cast<CurlTask::TimePoint::duration>(span);
}

}  // namespace

std::optional<CurlOrigin> CurlOrigin::of(const URL& url) {
  const auto scheme = url.scheme();
  const bool isSecure = scheme && headerNamesEqual(*scheme, "https");
  if (!isSecure && !(scheme && headerNamesEqual(*scheme, "http"))) return std::nullopt;
  auto host = url.host();
  if (!host || host->empty()) return std::nullopt;
  std::ranges::transform(*host, host->begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
  });
  const std::uint16_t standardPort = isSecure ? 443 : 80;
  return CurlOrigin{*std::move(host), url.port().value_or(standardPort), isSecure};
}

CurlTask::CurlTask(std::shared_ptr<CurlURLSession> session, std::uint64_t identifier,
                   URLRequest request, URLSessionCompletionHandler handler)
    : identifier_(identifier),
      original_(std::make_shared<const URLRequest>(std::move(request))),
      isStreaming_(handler == nullptr),
      hasDelegate_(session->delegate() != nullptr),
      session_(std::move(session)),
      current_(original_),
      handler_(std::move(handler)),
      permission_(hasDelegate_ ? Permission::notAsked : Permission::given) {}

CurlTask::~CurlTask() {
  // Only a task that was never resumed still knows its session here.
  if (session_) session_->taskIsOver(placeInSession_);
}

// What callers ask.

std::shared_ptr<CurlURLSession> CurlTask::session() const {
  const std::lock_guard lock(lock_);
  return session_;
}

std::shared_ptr<const URLRequest> CurlTask::request() const {
  const std::lock_guard lock(lock_);
  return current_;
}

URLSessionTask::State CurlTask::state() const {
  const std::lock_guard lock(lock_);
  return state_;
}

std::shared_ptr<const HTTPURLResponse> CurlTask::response() const {
  const std::lock_guard lock(lock_);
  return response_;
}

std::shared_ptr<const Error> CurlTask::error() const {
  const std::lock_guard lock(lock_);
  return error_;
}

URLSessionTaskMetrics CurlTask::metrics() const {
  const std::lock_guard lock(lock_);
  return metrics_;
}

std::int64_t CurlTask::countOfBytesExpectedToSend() const {
  const auto current = request();
  return current->httpBody ? static_cast<std::int64_t>(current->httpBody->size()) : 0;
}

// The way to the network.

void CurlTask::resume() {
  std::shared_ptr<CurlURLSession> session;
  {
    const std::lock_guard lock(lock_);
    if (state_ != State::suspended || !session_) return;
    state_ = State::running;
    session = session_;
    resumedAt_ = session->clock()->steadyNow();
    resourceDeadline_ =
        addSaturating(resumedAt_, session->configuration().timeoutIntervalForResource);
  }
  const URLSessionConfiguration& configuration = session->configuration();
  const bool isComplete =
      configuration.httpAdditionalHeaders.empty() &&
      configuration.requestCachePolicy == URLRequest::CachePolicy::useProtocolCachePolicy;
  if (!isComplete) setRequest(*original_);
  begin();
}

/// Makes the request, with what the session adds to it, the current one.
void CurlTask::setRequest(URLRequest request) {
  const auto session = this->session();
  if (!session) return;
  const URLSessionConfiguration& configuration = session->configuration();
  const bool isElsewhere = redirects_ > 0 && !haveSameOrigin(request.url, original_->url);
  for (const auto& [name, value] : configuration.httpAdditionalHeaders) {
    if (request.headers.contains(name)) continue;
    if (isElsewhere && isForOneOrigin(name)) continue;
    request.headers.set(name, value);
  }
  if (request.cachePolicy == URLRequest::CachePolicy::useProtocolCachePolicy) {
    request.cachePolicy = configuration.requestCachePolicy;
  }
  auto current = std::make_shared<const URLRequest>(std::move(request));
  const std::lock_guard lock(lock_);
  current_ = std::move(current);
}

/// Why the request cannot be sent; null when it can.
std::shared_ptr<const URLError> CurlTask::refusal(const URLRequest& request, bool hasOrigin) const {
  if (sessionHasEnded_) {
    return makeURLError(URLError::Code::cancelled, "the session has ended");
  }
  if (!hasOrigin) {
    return makeURLError(URLError::Code::unsupportedURL,
                        "no http or https URL: " + request.url.absoluteString());
  }
  if (!HTTPHeaders::isName(request.httpMethod)) {
    return makeURLError(URLError::Code::badURL, "the request's method is no token");
  }
  for (const auto& [name, value] : request.headers) {
    if (HTTPHeaders::isName(name) && HTTPHeaders::isValue(value)) continue;
    return makeURLError(URLError::Code::badURL, "a header field cannot be sent: " + name);
  }
  return nullptr;
}

URLCache* CurlTask::cacheOf(const CurlURLSession& session) const {
  return isStreaming_ ? nullptr : session.configuration().urlCache.get();
}

void CurlTask::setFetchType(URLSessionTaskMetrics::FetchType type) {
  const std::lock_guard lock(lock_);
  metrics_.fetchType = type;
}

/// Takes the current request to the cache or to the network.
void CurlTask::begin() {
  const auto session = this->session();
  if (!session || isOver()) return;
  const auto current = request();
  auto origin = CurlOrigin::of(current->url);
  if (auto error = refusal(*current, origin.has_value())) {
    fail(std::move(error));
    return;
  }
  origin_ = *std::move(origin);
  validated_.reset();
  conditions_ = {};
  URLCache* cache = cacheOf(*session);
  if (cache != nullptr && answeredByCache(*session, *cache)) return;

  const bool mayBeConstrained = current->allowsConstrainedNetworkAccess &&
                                session->configuration().allowsConstrainedNetworkAccess;
  if (mayBeConstrained) {
    goToNetwork(*session);
    return;
  }
  session->whenPathIsKnown([self = shared_from_this(), session] {
    if (self->isOver()) return;
    if (session->isConstrained()) {
      self->fail(std::make_shared<const URLError>(URLError::Code::notConnectedToInternet,
                                                  "the network is to be spared",
                                                  URLError::NetworkUnavailableReason::constrained));
    } else {
      self->goToNetwork(*session);
    }
  });
}

void CurlTask::goToNetwork(CurlURLSession& session) { session.loop().submit(shared_from_this()); }

bool CurlTask::answeredByCache(CurlURLSession& session, URLCache& cache) {
  URLCache::Decision decision = cache.decide(*request());
  switch (decision.kind) {
    case URLCache::Decision::Kind::serve: {
      setFetchType(URLSessionTaskMetrics::FetchType::localCache);
      Answer answer{.response = std::move(decision.answer->response),
                    .cachedBody = std::move(decision.answer->data),
                    .isNew = false};
      if (isRedirect(*answer.response)) {
        follow(session, std::move(answer));
      } else {
        postConclusion(session, std::move(answer));
      }
      return true;
    }
    case URLCache::Decision::Kind::unavailable:
      fail(makeURLError(URLError::Code::resourceUnavailable, "the cache holds no answer"));
      return true;
    case URLCache::Decision::Kind::validate:
      validated_ = std::move(decision.answer);
      conditions_ = std::move(decision.conditions);
      return false;
    case URLCache::Decision::Kind::load:
      return false;
  }
  return false;
}

// What comes back; network thread.

void CurlTask::exchangeBegins(TimePoint now) {
  bytesSent_ = 0;
  bytesReceived_ = 0;
  bytesExpected_ = -1;
  const std::lock_guard lock(lock_);
  metrics_.waiting = now - resumedAt_;
}

void CurlTask::requestIsResent() {
  const std::lock_guard lock(lock_);
  ++metrics_.resendCount;
}

void CurlTask::headerCame(std::shared_ptr<const HTTPURLResponse> response,
                          std::int64_t expectedBytes) {
  bytesExpected_ = expectedBytes;
  const std::lock_guard lock(lock_);
  response_ = std::move(response);
}

bool CurlTask::wantsEarlyQuestion() const {
  const std::lock_guard lock(lock_);
  const bool mayBeAnotherAnswer =
      isRedirect(*response_) || (validated_ && response_->statusCode() == 304);
  return permission_ == Permission::notAsked && !isEarlyQuestionPosted_ && !mayBeAnotherAnswer;
}

void CurlTask::askEarly() {
  std::shared_ptr<CurlURLSession> session;
  {
    const std::lock_guard lock(lock_);
    isEarlyQuestionPosted_ = true;
    session = session_;
  }
  if (!session) return;
  session->post([self = shared_from_this(), session] { self->askAboutResponse(*session); });
}

bool CurlTask::mustPause(std::size_t gatheredBytes) {
  if (!hasDelegate_ || (!isStreaming_ && gatheredBytes < kBytesBeforePermission)) return false;
  const std::lock_guard lock(lock_);
  const bool isFull = isStreaming_ ? stream_.size() >= kStreamedBytesKept
                                   : permission_ != Permission::given && !isRedirect(*response_);
  isPaused_ = isFull;
  return isFull;
}

void CurlTask::bodyCame(std::size_t bytes, Data& body) {
  bytesReceived_ += static_cast<std::int64_t>(bytes);
  if (!isStreaming_) return;
  if (!hasDelegate_) {
    body.clear();
    return;
  }
  bool mustPost = false;
  std::shared_ptr<CurlURLSession> session;
  {
    const std::lock_guard lock(lock_);
    if (isRedirect(*response_)) return;
    stream_.insert(stream_.end(), body.begin(), body.end());
    mustPost = permission_ == Permission::given && !std::exchange(isStreamPosted_, true);
    session = session_;
  }
  body.clear();
  if (mustPost && session) session->post([self = shared_from_this()] { self->handOverStream(); });
}

void CurlTask::bodySent(std::int64_t totalBytes) {
  bytesSent_ = totalBytes;
  if (!hasDelegate_ || isSentReportPosted_.exchange(true)) return;
  if (const auto session = this->session()) {
    session->post([self = shared_from_this()] { self->reportSent(); });
  }
}

void CurlTask::exchangeEnded(Answer answer, const CurlExchange& exchange) {
  const auto session = this->session();
  if (!session) return;
  bytesSent_ = exchange.bytesSent();
  {
    const std::lock_guard lock(lock_);
    exchange.addTo(metrics_);
    metrics_.fetchType = URLSessionTaskMetrics::FetchType::networkLoad;
  }
  if (isRedirect(*answer.response)) {
    follow(*session, std::move(answer));
    return;
  }
  session->loop().forget(shared_from_this());
  if (session->loop().delivers()) {
    session->loop().deliver(shared_from_this(), std::move(answer));
  } else {
    postConclusion(*session, std::move(answer));
  }
}

bool CurlTask::askAboutTrust(URLAuthenticationChallenge challenge, TrustAnswer answer) {
  using Reply =
      std::pair<URLSessionDelegate::AuthChallengeDisposition, std::optional<URLCredential>>;
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
        using enum URLSessionDelegate::AuthChallengeDisposition;
        const auto& [disposition, credential] = reply;
        const bool isThatOne = credential && !credential->trust.certificates.empty() &&
                               credential->trust.certificates.front() == leaf;
        if (disposition == cancelAuthenticationChallenge) {
          answer(std::nullopt);
        } else {
          answer(disposition == useCredential && isThatOne ? CurlTrust::Decision::accept
                                                           : CurlTrust::Decision::standard);
        }
      };
  constexpr auto kDefault = URLSessionDelegate::AuthChallengeDisposition::performDefaultHandling;
  session->post([session, delegate, challenge = std::move(challenge),
                 once = AnswerOnce<Reply>(std::move(decide), {kDefault, std::nullopt})]() mutable {
    delegate->didReceiveChallenge(
        *session, challenge,
        [once = std::move(once)](auto disposition,
                                 std::optional<URLCredential> credential) mutable {
          once({disposition, std::move(credential)});
        });
  });
  return true;
}

void CurlTask::awaitConnectivity() {
  if (const auto session = this->session()) session->watchPath();
}

// Redirects.

/// Asks the delegate where to go next; the network thread, or whoever asked the cache.
void CurlTask::follow(CurlURLSession& session, Answer answer) {
  if (++redirects_ > kMaximumRedirects) {
    fail(makeURLError(URLError::Code::httpTooManyRedirects, "the server redirects without end"));
    return;
  }
  auto next = redirected(*request(), *answer.response);
  if (!next) {
    fail(makeURLError(URLError::Code::redirectToNonExistentLocation,
                      "the server redirects to something that is no URL"));
    return;
  }
  {
    const std::lock_guard lock(lock_);
    metrics_.redirectCount = redirects_;
  }
  const auto delegate = session.delegate();
  if (!delegate) {
    if (cacheOf(session) != nullptr && answer.isNew) {
      ThreadPool::shared().post([self = shared_from_this(), kept = session.shared_from_this(),
                                 answer = std::move(answer), next = *std::move(next)]() mutable {
        self->throughCache(*self->cacheOf(*kept), std::move(answer));
        self->followTo(*kept, std::move(next));
      });
    } else {
      followTo(session, *std::move(next));
    }
    return;
  }
  session.post([self = shared_from_this(), kept = session.shared_from_this(), delegate,
                answer = std::move(answer), next = *std::move(next)]() mutable {
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

void CurlTask::followTo(CurlURLSession& session, URLRequest request) {
  setRequest(std::move(request));
  if (cacheOf(session) != nullptr) {
    // The cache may look at the disk, which is not for the thread that calls.
    ThreadPool::shared().post([self = shared_from_this()] { self->begin(); });
  } else {
    begin();
  }
}

// The answer; delegate queue.

void CurlTask::postConclusion(CurlURLSession& session, Answer answer) {
  session.post([self = shared_from_this(), answer = std::move(answer)]() mutable {
    self->conclude(std::move(answer));
  });
}

void CurlTask::conclude(Answer answer) {
  const auto session = this->session();
  if (!session || isOver()) return;
  reportSent();
  URLCache* cache = cacheOf(*session);
  if (cache != nullptr && answer.isNew) {
    const bool wasRedirect = isRedirect(*answer.response);
    answer = throughCache(*cache, std::move(answer));
    if (validated_ && answer.response->statusCode() == 304) {
      loadAfresh();
      return;
    }
    if (!wasRedirect && isRedirect(*answer.response)) {
      follow(*session, std::move(answer));
      return;
    }
  }
  Outcome outcome;
  if (isStreaming_) {
    // Only a redirect that is not followed still holds its body.
    const std::lock_guard lock(lock_);
    stream_.insert(stream_.end(), answer.body.begin(), answer.body.end());
  } else if (answer.cachedBody) {
    if (!answer.cachedBody->empty()) outcome.data = *answer.cachedBody;
  } else if (!answer.body.empty()) {
    outcome.data = std::move(answer.body);
  }
  bool mustAsk = false;
  {
    const std::lock_guard lock(lock_);
    response_ = answer.response;
    mustAsk = permission_ == Permission::notAsked;
  }
  outcome.response = std::move(answer.response);
  if (mustAsk) askAboutResponse(*session);
  {
    const std::lock_guard lock(lock_);
    if (permission_ != Permission::given) {
      awaitingPermission_ = std::move(outcome);
      return;
    }
  }
  if (claim()) deliver(std::move(outcome));
}

/// Asks once more without the cache's conditions: the server has confirmed something else than what
/// is kept, and the caller, who set none, has no use for that.
void CurlTask::loadAfresh() {
  URLRequest again = *request();
  again.cachePolicy = URLRequest::CachePolicy::reloadIgnoringLocalCacheData;
  setRequest(std::move(again));
  begin();
}

/// Lets the cache keep the answer, and complete it when the server has only confirmed what is kept.
CurlTask::Answer CurlTask::throughCache(URLCache& cache, Answer answer) {
  const bool wasConfirmed = validated_ && answer.response->statusCode() == 304;
  const auto body = std::make_shared<Data>(std::move(answer.body));
  CachedURLResponse kept =
      cache.received(*request(), answer.requestTime, answer.responseTime,
                     {std::move(answer.response), body}, validated_ ? &*validated_ : nullptr);
  const bool isConfirmed = wasConfirmed && kept.response->statusCode() != 304;
  if (isConfirmed) setFetchType(URLSessionTaskMetrics::FetchType::validated);
  if (kept.data == body) {
    kept.data = nullptr;
    const bool isNotKept = body.use_count() == 1;
    if (isNotKept) {
      return {.response = std::move(kept.response), .body = std::move(*body), .isNew = false};
    }
    kept.data = body;
  }
  return {.response = std::move(kept.response), .cachedBody = std::move(kept.data), .isNew = false};
}

void CurlTask::askAboutResponse(CurlURLSession& session) {
  const auto delegate = session.delegate();
  std::shared_ptr<const HTTPURLResponse> response;
  {
    const std::lock_guard lock(lock_);
    if (permission_ != Permission::notAsked || isClaimed_) return;
    permission_ = Permission::asked;
    response = response_;
  }
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
  if (!delegate) return;  // which answers by itself
  delegate->didReceiveResponse(
      session, *this, response,
      [once = std::move(once)](auto disposition) mutable { once(disposition); });
}

/// The delegate allows the answer; any thread.
void CurlTask::permitted(CurlURLSession& session) {
  std::optional<Outcome> outcome;
  bool wasPaused = false;
  bool mustPost = false;
  {
    const std::lock_guard lock(lock_);
    permission_ = Permission::given;
    outcome = std::exchange(awaitingPermission_, std::nullopt);
    wasPaused = !isStreaming_ && std::exchange(isPaused_, false);
    mustPost = !stream_.empty() && !std::exchange(isStreamPosted_, true);
  }
  if (mustPost) session.post([self = shared_from_this()] { self->handOverStream(); });
  if (wasPaused) session.loop().resumeReceiving(shared_from_this());
  if (outcome) finish(*std::move(outcome));
}

void CurlTask::handOverStream() {
  std::shared_ptr<CurlURLSession> session;
  Data piece;
  {
    const std::lock_guard lock(lock_);
    isStreamPosted_ = false;
    if (permission_ != Permission::given || state_ == State::canceling) return;
    piece.swap(stream_);
    session = session_;
  }
  const auto delegate = session ? session->delegate() : nullptr;
  if (!delegate || piece.empty()) return;
  delegate->didReceiveData(*session, *this, piece);
  bool wasPaused = false;
  {
    const std::lock_guard lock(lock_);
    wasPaused = std::exchange(isPaused_, false);
  }
  if (wasPaused) session->loop().resumeReceiving(shared_from_this());
}

void CurlTask::reportSent() {
  isSentReportPosted_ = false;
  if (!hasDelegate_ || isOver()) return;
  const std::int64_t total = bytesSent_;
  std::shared_ptr<CurlURLSession> session;
  std::int64_t before = 0;
  {
    const std::lock_guard lock(lock_);
    session = session_;
    before = std::exchange(reportedSent_, total);
  }
  const auto delegate = session ? session->delegate() : nullptr;
  if (!delegate || total <= before) return;
  delegate->didSendBodyData(*session, *this, total - before, total, countOfBytesExpectedToSend());
}

// The end.

void CurlTask::fail(std::shared_ptr<const Error> error) {
  finish({.data = std::nullopt, .response = nullptr, .error = std::move(error)});
}

void CurlTask::cancel() {
  {
    const std::lock_guard lock(lock_);
    if (state_ == State::completed || isClaimed_) return;
    state_ = State::canceling;
  }
  fail(makeURLError(URLError::Code::cancelled, "the transfer was cancelled"));
}

void CurlTask::finish(Outcome outcome) {
  if (!claim()) return;
  const auto session = this->session();
  if (!session) return;
  // What is under way ends now, not when the delegate queue gets to it.
  if (isWithLoop) session->loop().abandon(shared_from_this());
  session->post([self = shared_from_this(), outcome = std::move(outcome)]() mutable {
    self->deliver(std::move(outcome));
  });
}

/// Hands the outcome over, on the delegate queue; called by whoever made the claim.
void CurlTask::deliver(Outcome outcome) {
  const auto session = this->session();
  if (!session) return;
  if (isWithLoop) session->loop().abandon(shared_from_this());
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
    awaitingPermission_.reset();
    stream_ = {};
  }
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

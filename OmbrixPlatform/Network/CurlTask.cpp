#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Network/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Detail/CurlExchange.hpp"
#include "OmbrixPlatform/Network/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Detail/CurlTask.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr int kMaximumRedirects = 20;
// So much of a body is received before the delegate has allowed the answer.
constexpr std::size_t kBytesBeforePermission = 64 * 1024;
// So much of a streamed body waits for the delegate.
constexpr std::size_t kStreamedBytesAtOnce = 256 * 1024;

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
                   URLRequest request, URLSessionCompletionHandler handler, bool sessionHasEnded)
    : identifier_(identifier),
      original_(std::make_shared<const URLRequest>(std::move(request))),
      isStreaming_(handler == nullptr),
      sessionHasEnded_(sessionHasEnded),
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
  }
  resumedAt_ = session->clock()->steadyNow();
  resourceDeadline_ =
      addSaturating(resumedAt_, session->configuration().timeoutIntervalForResource);
  setRequest(*original_);
  begin();
}

/// Makes the request, with what the session adds to it, the current one.
void CurlTask::setRequest(URLRequest request) {
  const auto kept = session();
  if (!kept) return;
  const URLSessionConfiguration& configuration = kept->configuration();
  for (const auto& [name, value] : configuration.httpAdditionalHeaders) {
    if (!request.headers.contains(name)) request.headers.set(name, value);
  }
  if (request.cachePolicy == URLRequest::CachePolicy::useProtocolCachePolicy) {
    request.cachePolicy = configuration.requestCachePolicy;
  }
  auto current = std::make_shared<const URLRequest>(std::move(request));
  const std::lock_guard lock(lock_);
  current_ = std::move(current);
}

/// Why the current request cannot be sent; null when it can.
std::shared_ptr<const URLError> CurlTask::refusal() const {
  const auto current = request();
  if (sessionHasEnded_) {
    return makeURLError(URLError::Code::cancelled, "the session has ended");
  }
  if (!CurlOrigin::of(current->url)) {
    return makeURLError(URLError::Code::unsupportedURL,
                        "no http or https URL: " + current->url.absoluteString());
  }
  if (!HTTPHeaders::isName(current->httpMethod)) {
    return makeURLError(URLError::Code::badURL, "the request's method is no token");
  }
  for (const auto& [name, value] : current->headers) {
    if (HTTPHeaders::isName(name) && HTTPHeaders::isValue(value)) continue;
    return makeURLError(URLError::Code::badURL, "a header field cannot be sent: " + name);
  }
  return nullptr;
}

void CurlTask::begin() {
  const auto session = this->session();
  if (!session || isOver()) return;
  if (auto error = refusal()) {
    fail(std::move(error));
    return;
  }
  const auto current = request();
  origin_ = *CurlOrigin::of(current->url);
  session->loop().submit(shared_from_this());
}

void CurlTask::exchangeBegins() {
  const auto session = this->session();
  if (!session) return;
  const auto now = session->clock()->steadyNow();
  const std::lock_guard lock(lock_);
  metrics_.waiting = now - resumedAt_;
}

// What comes back; network thread.

void CurlTask::headerCame(std::shared_ptr<const HTTPURLResponse> response,
                          std::int64_t expectedBytes) {
  bytesExpected_ = expectedBytes;
  const std::lock_guard lock(lock_);
  response_ = std::move(response);
}

bool CurlTask::mustPause(std::size_t /*gathered*/) { return false; }

void CurlTask::bodyCame(std::size_t receivedBytes, Data& /*body*/) {
  bytesReceived_ += static_cast<std::int64_t>(receivedBytes);
}

void CurlTask::bodySent(std::int64_t totalBytes) { bytesSent_ = totalBytes; }

void CurlTask::exchangeEnded(Answer answer, const CurlExchange& exchange) {
  bytesSent_ = exchange.bytesSent();
  {
    const std::lock_guard lock(lock_);
    exchange.addTo(metrics_);
    metrics_.fetchType = URLSessionTaskMetrics::FetchType::networkLoad;
  }
  const auto session = this->session();
  if (!session) return;
  session->loop().forget(shared_from_this());
  session->post([self = shared_from_this(), answer = std::move(answer)]() mutable {
    self->conclude(std::move(answer));
  });
}

// The end.

void CurlTask::conclude(Answer answer) {
  if (isOver()) return;
  Outcome outcome{.response = std::move(answer.response)};
  if (!answer.body.empty()) outcome.data = std::move(answer.body);
  if (claim()) deliver(std::move(outcome));
}

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
  session->post([self = shared_from_this(), outcome = std::move(outcome)]() mutable {
    self->deliver(std::move(outcome));
  });
}

/// Hands the outcome over; on the delegate queue, by whoever made the claim.
void CurlTask::deliver(Outcome outcome) {
  const auto session = this->session();
  if (!session) return;
  if (isWithLoop) session->loop().abandon(shared_from_this());
  URLSessionCompletionHandler handler;
  {
    const std::lock_guard lock(lock_);
    state_ = State::completed;
    error_ = outcome.error;
    metrics_.total = session->clock()->steadyNow() - resumedAt_;
    handler = std::move(handler_);
  }
  if (handler) {
    handler(std::move(outcome.data), std::move(outcome.response), std::move(outcome.error));
    handler = nullptr;
  }
  {
    const std::lock_guard lock(lock_);
    session_ = nullptr;
  }
  session->taskIsOver(placeInSession_);
}

}  // namespace ombrix::platform::detail

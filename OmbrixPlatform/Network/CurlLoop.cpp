#include <pthread.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <iterator>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Network/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kIdleConnections = 64;
constexpr std::size_t kHostsKept = 256;  // more are forgotten while nothing goes there
constexpr std::size_t kDeliveriesTogether = 32;
constexpr auto kFirstRetryDelay = 500ms;
constexpr auto kLongestRetryDelay = 30s;
constexpr std::chrono::milliseconds kLongestSleep = 1h;
// libcurl 7.88 may leave bytes of one HTTP/2 stream lying when another of the connection has read
// them: an exchange over TLS that seems to stand still is made to look again after these times.
constexpr auto kFirstNudgeDelay = 20ms;
constexpr auto kLongestNudgeDelay = 320ms;

void blockBrokenPipeSignal() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// Whether a method has the same effect twice as once (RFC 9110 section 9.2.2).
bool isIdempotent(std::string_view method) {
  constexpr std::array<std::string_view, 6> kMethods{"GET",    "HEAD",    "PUT",
                                                     "DELETE", "OPTIONS", "TRACE"};
  return std::ranges::find(kMethods, method) != kMethods.end();
}

bool isLoopbackName(std::string_view host) {
  return host == "localhost" || host == "::1" || host.starts_with("127.");
}

}  // namespace

CurlLoop::CurlLoop(const URLSessionConfiguration& configuration, std::shared_ptr<Clock> clock,
                   bool asksDelegate, std::shared_ptr<DispatchQueue> ownQueue)
    : configuration_(configuration),
      clock_(std::move(clock)),
      asksDelegate_(asksDelegate),
      ownQueue_(std::move(ownQueue)),
      multi_(::curl_multi_init()) {
  if (multi_ == nullptr) fatalError("libcurl cannot be set up");
  ::curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS,
                      static_cast<long>(configuration_.httpMaximumConnectionsPerHost));
  ::curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(kIdleConnections));
}

CurlLoop::~CurlLoop() { ::curl_multi_cleanup(multi_); }

// Mail, from any thread.

void CurlLoop::submit(std::shared_ptr<CurlTask> task) {
  task->isWithLoop = true;
  handOver(std::move(task), nullptr);
}

void CurlLoop::post(LoopJob job) { handOver(nullptr, std::move(job)); }

void CurlLoop::handOver(std::shared_ptr<CurlTask> task, LoopJob job) {
  bool mustWake = false;
  {
    const std::lock_guard lock(lock_);
    if (task) submitted_.push_back(std::move(task));
    if (job) jobs_.push_back(std::move(job));
    if (!hasThread_) {
      hasThread_ = true;
      std::thread([self = shared_from_this()] { self->run(); }).detach();
    }
    mustWake = std::exchange(isSleeping_, false);
  }
  if (mustWake) ::curl_multi_wakeup(multi_);
}

void CurlLoop::abandon(std::shared_ptr<CurlTask> task) {
  post([task = std::move(task)](CurlLoop& loop) { loop.letGo(task); });
}

void CurlLoop::resumeReceiving(std::shared_ptr<CurlTask> task) {
  post([task = std::move(task)](CurlLoop& loop) {
    CurlExchange* exchange = task->place.exchange;
    if (exchange == nullptr) return;
    const CURLcode code = exchange->resumeReceiving();
    if (code != CURLE_OK) {
      loop.ended(*exchange, code);
    } else {
      loop.nextIdleCheck_ = std::min(loop.nextIdleCheck_, exchange->idleDeadline());
    }
  });
}

void CurlLoop::stop() {
  bool mustWake = false;
  {
    const std::lock_guard lock(lock_);
    isStopping_ = true;
    mustWake = std::exchange(isSleeping_, false);
  }
  if (mustWake) ::curl_multi_wakeup(multi_);
}

// The thread.

void CurlLoop::run() {
  blockBrokenPipeSignal();
  ::pthread_setname_np(::pthread_self(), "URLSession");
  now_ = clock_->steadyNow();
  while (takeMail()) {
    checkDeadlines();
    startWaiting();
    hasStarted_ = false;
    int running = 0;
    ::curl_multi_perform(multi_, &running);
    finishDone();
    startWaiting();
    askAboutHeaders();
    // The next requests go out before the last answers are handed over.
    if (hasStarted_ && deliveries_.size() < kDeliveriesTogether) continue;
    flushDeliveries();
    if (hasStarted_) continue;
    armTimer();
    {
      const std::lock_guard lock(lock_);
      if (!submitted_.empty() || !jobs_.empty() || isStopping_) continue;
      isSleeping_ = true;
    }
    sleep();
  }
  tearDown();
}

/// Waits for sockets, for libcurl's own timers or for mail.
void CurlLoop::sleep() {
  const bool mayStall = std::ranges::any_of(
      active_, [](const auto& exchange) { return exchange->task()->origin().isSecure; });
  const std::chrono::milliseconds limit = mayStall ? nudgeDelay_ : kLongestSleep;
  int ready = 0;
  ::curl_multi_poll(multi_, nullptr, 0, static_cast<int>(limit.count()), &ready);
  if (!mayStall || ready > 0) {
    nudgeDelay_ = kFirstNudgeDelay;
    return;
  }
  {
    const std::lock_guard lock(lock_);
    if (!isSleeping_) return;  // mail
  }
  nudgeDelay_ = std::min<std::chrono::milliseconds>(2 * nudgeDelay_, kLongestNudgeDelay);
  for (std::size_t i = active_.size(); i-- > 0;) {
    CurlExchange& exchange = *active_[i];
    const CURLcode code = exchange.task()->origin().isSecure ? exchange.nudge() : CURLE_OK;
    if (code != CURLE_OK) ended(exchange, code);
  }
}

/// Does what was handed over; false once the loop is to end.
bool CurlLoop::takeMail() {
  std::vector<std::shared_ptr<CurlTask>> submitted;
  std::vector<LoopJob> jobs;
  {
    const std::lock_guard lock(lock_);
    isSleeping_ = false;
    submitted.swap(submitted_);
    jobs.swap(jobs_);
    if (isStopping_ && submitted.empty() && jobs.empty()) return false;
  }
  now_ = clock_->steadyNow();
  for (const auto& task : submitted) admit(task);
  for (auto& job : jobs) job(*this);
  return true;
}

void CurlLoop::admit(const std::shared_ptr<CurlTask>& task) {
  if (task->isOver()) {
    letGo(task);
    return;
  }
  CurlTask::LoopPlace& place = task->place;
  place.isResend = false;
  if (!place.isKnown) {
    auto where = tasks_.end();
    while (where != tasks_.begin() &&
           (*std::prev(where))->resourceDeadline() > task->resourceDeadline()) {
      --where;  // it has come late, or come back
    }
    place.known = tasks_.insert(where, task);
    place.isKnown = true;
  }
  CurlHost& host = hostFor(task->origin());
  place.host = &host;
  place.queued = host.waiting.insert(host.waiting.end(), task);
  place.isQueued = true;
  touched_.push_back(&host);
}

CurlHost& CurlLoop::hostFor(const CurlOrigin& origin) {
  if (hosts_.size() >= kHostsKept && !asksDelegate_) {
    std::erase_if(hosts_, [&](const auto& entry) {
      const CurlHost& idle = *entry.second;
      return idle.active == 0 && idle.waiting.empty() && !idle.isOffline &&
             std::ranges::find(touched_, &idle) == touched_.end();
    });
  }
  auto& host = hosts_[origin];
  if (!host) {
    const bool isMapped = std::ranges::any_of(
        configuration_.loopbackHosts,
        [&](const std::string& name) { return headerNamesEqual(name, origin.host); });
    host = std::make_unique<CurlHost>(origin, isMapped);
  }
  return *host;
}

void CurlLoop::startWaiting() {
  // Starting may fail at once, which touches a host again.
  while (!touched_.empty()) {
    CurlHost* host = touched_.back();
    touched_.pop_back();
    pump(*host);
  }
}

void CurlLoop::pump(CurlHost& host) {
  const bool isUndecided = asksDelegate_ && !host.trust.hasDecisions();
  while (!host.waiting.empty() && !host.isAsking && !host.isOffline) {
    const auto& task = host.waiting.front();
    // Until a certificate is decided about, one handshake is enough to ask.
    const bool asksFirst = isUndecided && task->origin().isSecure;
    const std::size_t limit =
        asksFirst ? 1 : std::max<std::size_t>(configuration_.httpMaximumConnectionsPerHost, 1);
    if (host.active >= limit) return;
    auto next = std::move(host.waiting.front());
    host.waiting.pop_front();
    next->place.isQueued = false;
    if (!next->isOver()) start(host, std::move(next));
  }
}

bool CurlLoop::start(CurlHost& host, std::shared_ptr<CurlTask> task) {
  auto exchange = std::make_unique<CurlExchange>(now_, sockets_);
  const bool isSecure = task->origin().isSecure;
  const CurlExchange::Terms terms{
      .timeLimit =
          std::min(task->request()->timeoutInterval, configuration_.timeoutIntervalForRequest),
      .isSecure = isSecure,
      .isMappedToLoopback = host.isMappedToLoopback,
      .bypassesProxy = host.isMappedToLoopback || isLoopbackName(task->origin().host),
      .trust = isSecure && asksDelegate_ ? &host.trust : nullptr,
      .isResend = task->place.isResend};
  task->exchangeBegins(now_);
  if (!exchange->begin(task, terms) ||
      ::curl_multi_add_handle(multi_, exchange->easy()) != CURLM_OK) {
    forget(task);
    task->fail(makeURLError(URLError::Code::unknown, "the transfer cannot be set up"));
    return false;
  }
  task->place.exchange = exchange.get();
  ++host.active;
  nextIdleCheck_ = std::min(nextIdleCheck_, exchange->idleDeadline());
  exchange->activeIndex = active_.size();
  active_.push_back(std::move(exchange));
  hasStarted_ = true;
  return true;
}

void CurlLoop::finishDone() {
  int left = 0;
  while (const CURLMsg* message = ::curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode code = message->data.result;
    char* exchange = nullptr;
    ::curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &exchange);
    ended(*reinterpret_cast<CurlExchange*>(exchange), code);
  }
}

void CurlLoop::deliver(std::shared_ptr<CurlTask> task, CurlTask::Answer answer) {
  deliveries_.emplace_back(std::move(task), std::move(answer));
}

/// One job for all: waking a thread for each costs as much as half a request.
void CurlLoop::flushDeliveries() {
  if (deliveries_.empty()) return;
  ownQueue_->async([deliveries = std::exchange(deliveries_, {})]() mutable {
    for (auto& [task, answer] : deliveries) {
      task->conclude(std::move(answer));
      task = nullptr;
    }
  });
}

void CurlLoop::ended(CurlExchange& exchange, CURLcode code) {
  const std::shared_ptr<CurlTask> task = exchange.task();
  if (code != CURLE_OK && (sendsAgain(exchange, task) || retriesLater(exchange, task, code)))
    return;
  task->place.host->retryDelay = {};
  if (const auto error = exchange.errorFor(code)) {
    release(exchange);
    forget(task);
    task->fail(error);
    return;
  }
  CurlTask::Answer answer{.response = exchange.response(),
                          .body = exchange.takeBody(),
                          .requestTime = exchange.requestTime(),
                          .responseTime = exchange.responseTime()};
  task->exchangeEnded(std::move(answer), exchange);
  release(exchange);
}

/// Sends the request once more, on a new connection, when the one that was used again has died
/// before an answer came; only what has the same effect twice as once.
bool CurlLoop::sendsAgain(CurlExchange& exchange, const std::shared_ptr<CurlTask>& task) {
  if (!exchange.wouldBeSentAgain() || task->isOver() || task->place.isResend ||
      !isIdempotent(task->request()->httpMethod)) {
    return false;
  }
  task->place.isResend = true;
  task->requestIsResent();
  release(exchange);
  requeue(task);
  return true;
}

/// Keeps the task when its exchange may succeed later: once the delegate has decided about a
/// certificate, or once there is connectivity.
bool CurlLoop::retriesLater(CurlExchange& exchange, const std::shared_ptr<CurlTask>& task,
                            CURLcode code) {
  if (exchange.hasHeader() || exchange.wasSent()) return false;
  CurlHost& host = *task->place.host;
  const CurlFailure failure = exchange.failureFor(code);
  const bool isUndecided = failure.verifyResult == undecidedVerifyResult();
  const bool waits = configuration_.waitsForConnectivity && isMissingConnectivity(failure);
  if (!isUndecided && !waits && !exchange.foundSurplus()) return false;
  release(exchange);
  if (task->isOver()) {
    forget(task);
  } else if (waits) {
    awaitConnectivity(task);
  } else if (isUndecided && host.isAsking) {
    host.refused.push_back(task);
  } else if (auto question = host.trust.takeQuestion(); isUndecided && question) {
    askAboutTrust(task, *std::move(question));
  } else {
    requeue(task);  // for a connection of its own, or a certificate decided about meanwhile
  }
  return true;
}

/// Puts a task first in its host's queue.
void CurlLoop::requeue(const std::shared_ptr<CurlTask>& task) {
  CurlTask::LoopPlace& place = task->place;
  place.queued = place.host->waiting.insert(place.host->waiting.begin(), task);
  place.isQueued = true;
  touched_.push_back(place.host);
}

void CurlLoop::awaitConnectivity(const std::shared_ptr<CurlTask>& task) {
  CurlHost& host = *task->place.host;
  if (!std::exchange(host.isOffline, true)) {
    host.retryDelay = std::clamp<std::chrono::milliseconds>(2 * host.retryDelay, kFirstRetryDelay,
                                                            kLongestRetryDelay);
    host.retryAt = now_ + host.retryDelay;
    offline_.push_back(&host);
  }
  requeue(task);
  task->awaitConnectivity();
}

void CurlLoop::connectivityMayBeBack() {
  post([](CurlLoop& loop) { loop.retryOffline(true); });
}

void CurlLoop::retryOffline(bool isForced) {
  std::erase_if(offline_, [&](CurlHost* host) {
    if (!isForced && now_ < host->retryAt) return false;
    host->isOffline = false;
    touched_.push_back(host);
    return true;
  });
}

void CurlLoop::askAboutTrust(const std::shared_ptr<CurlTask>& task, CurlTrust::Question question) {
  CurlHost& host = *task->place.host;
  host.isAsking =
      task->askAboutTrust({host.trust.spaceFor(std::move(question.trust))},
                          [weak = weak_from_this(), &host, leaf = question.leaf](auto decision) {
                            const auto self = weak.lock();
                            if (!self) return;
                            self->post([&host, leaf, decision](CurlLoop& loop) {
                              loop.trustAnswered(host, leaf, decision);
                            });
                          });
  if (host.isAsking) {
    host.refused.push_back(task);
  } else {
    forget(task);  // over meanwhile: the next handshake asks
  }
}

/// Lets the refused tasks try again, or ends them when the answer was to cancel.
void CurlLoop::trustAnswered(CurlHost& host, const CurlTrust::Fingerprint& leaf,
                             std::optional<CurlTrust::Decision> decision) {
  host.isAsking = false;
  touched_.push_back(&host);
  if (decision) host.trust.decide(leaf, *decision);
  for (const auto& task : std::exchange(host.refused, {})) {
    if (task->isOver()) continue;
    if (decision) {
      requeue(task);
      continue;
    }
    forget(task);
    task->fail(makeURLError(URLError::Code::userCancelledAuthentication,
                            "the server's certificate was not accepted"));
  }
}

/// Ends an exchange for its task.
void CurlLoop::release(CurlExchange& exchange) {
  ::curl_multi_remove_handle(multi_, exchange.easy());
  CurlTask& task = *exchange.task();
  CurlHost& host = *task.place.host;
  task.place.exchange = nullptr;
  --host.active;
  touched_.push_back(&host);
  const std::size_t index = exchange.activeIndex;
  std::swap(active_[index], active_.back());
  active_[index]->activeIndex = index;
  active_.pop_back();
}

/// Takes a task out of everything on this thread; what is under way for it ends.
void CurlLoop::letGo(const std::shared_ptr<CurlTask>& task) {
  if (task->place.exchange != nullptr) release(*task->place.exchange);
  if (std::exchange(task->place.isQueued, false)) {
    task->place.host->waiting.erase(task->place.queued);
  }
  forget(task);
}

void CurlLoop::forget(const std::shared_ptr<CurlTask>& task) {
  if (std::exchange(task->place.isKnown, false)) tasks_.erase(task->place.known);
  task->isWithLoop = false;
}

void CurlLoop::expire(const std::shared_ptr<CurlTask>& task, const char* message) {
  const auto kept = task;  // the lists let go of it
  letGo(kept);
  kept->fail(makeURLError(URLError::Code::timedOut, message));
}

void CurlLoop::checkDeadlines() {
  while (!tasks_.empty() && now_ >= tasks_.front()->resourceDeadline()) {
    expire(tasks_.front(), "the answer did not come in time");
  }
  retryOffline(false);
  if (now_ < nextIdleCheck_) return;
  nextIdleCheck_ = TimePoint::max();
  for (std::size_t i = active_.size(); i-- > 0;) {
    CurlExchange& exchange = *active_[i];
    const TimePoint deadline = exchange.idleDeadline();
    if (now_ < deadline) {
      nextIdleCheck_ = std::min(nextIdleCheck_, deadline);
    } else if (configuration_.waitsForConnectivity && !exchange.hasConnection()) {
      const auto task = exchange.task();
      release(exchange);
      awaitConnectivity(task);
    } else {
      expire(exchange.task(), "the server sent nothing for too long");
    }
  }
}

void CurlLoop::armTimer() {
  TimePoint next = nextIdleCheck_;
  if (!tasks_.empty()) next = std::min(next, tasks_.front()->resourceDeadline());
  for (const CurlHost* host : offline_) next = std::min(next, host->retryAt);
  if (next >= armedFor_) return;
  armedFor_ = next;
  timer_ = after(next, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->post([](CurlLoop& loop) { loop.armedFor_ = TimePoint::max(); });
  });
}

/// Asks the delegate about answers whose body is still coming; those that are whole already ask
/// on their way to the handler.
void CurlLoop::askAboutHeaders() {
  if (!asksDelegate_) return;
  for (const auto& exchange : active_) {
    if (exchange->hasHeader() && exchange->task()->wantsEarlyQuestion()) {
      exchange->task()->askEarly();
    }
  }
}

void CurlLoop::tearDown() {
  timer_ = {};
  active_.clear();
}

}  // namespace ombrix::platform::detail

#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Network/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kIdleExchanges = 16;  // handles kept for the next exchanges
constexpr std::size_t kIdleConnections = 64;
constexpr std::size_t kForgottenHosts = 256;  // queues of hosts that are kept at least
constexpr auto kFirstRetryDelay = 500ms;
constexpr auto kLongestRetryDelay = 30s;
constexpr auto kLongestSleep = 1h;

void blockBrokenPipeSignal() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool isLoopbackName(std::string_view host) {
  return host == "localhost" || host == "::1" || host.starts_with("127.");
}

}  // namespace

CurlLoop::CurlLoop(const URLSessionConfiguration& configuration, std::shared_ptr<Clock> clock,
                   bool asksAboutTrust)
    : configuration_(configuration),
      clock_(std::move(clock)),
      asksAboutTrust_(asksAboutTrust),
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
    if (code != CURLE_OK) loop.ended(*exchange, code);
    loop.hasStarted_ = true;
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
    startWaiting();
    checkDeadlines();
    hasStarted_ = false;
    int running = 0;
    ::curl_multi_perform(multi_, &running);
    finishDone();
    startWaiting();
    askAboutHeaders();
    if (hasStarted_) continue;
    armTimer();
    {
      const std::lock_guard lock(lock_);
      if (!submitted_.empty() || !jobs_.empty() || isStopping_) continue;
      isSleeping_ = true;
    }
    constexpr int kSleep = static_cast<int>(std::chrono::milliseconds(kLongestSleep).count());
    ::curl_multi_poll(multi_, nullptr, 0, kSleep, nullptr);
  }
  tearDown();
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
  if (!place.isKnown) {
    place.known = tasks_.insert(tasks_.end(), task);
    place.isKnown = true;
  }
  CurlHost& host = hostFor(task->origin());
  place.host = &host;
  place.queued = host.waiting.insert(host.waiting.end(), task);
  place.isQueued = true;
  touched_.push_back(&host);
}

CurlHost& CurlLoop::hostFor(const CurlOrigin& origin) {
  std::string key = origin.host;
  key.append(origin.isSecure ? ":s" : ":").append(std::to_string(origin.port));
  auto& host = hosts_[key];
  if (!host) {
    const auto& loopbackHosts = configuration_.loopbackHosts;
    const bool isLoopback = std::ranges::any_of(loopbackHosts, [&](const std::string& name) {
      return headerNamesEqual(name, origin.host);
    });
    host = std::make_unique<CurlHost>(origin, isLoopback || isLoopbackName(origin.host));
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
  const bool isUndecided = asksAboutTrust_ && !host.trust.hasDecisions();
  while (!host.waiting.empty() && !host.isAsking && now_ >= host.retryAt) {
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
  std::unique_ptr<CurlExchange> exchange;
  if (idle_.empty()) {
    exchange = std::make_unique<CurlExchange>(now_);
  } else {
    exchange = std::move(idle_.back());
    idle_.pop_back();
  }
  const bool isSecure = task->origin().isSecure;
  const CurlExchange::Terms terms{.timeLimit = std::min(task->request()->timeoutInterval,
                                                        configuration_.timeoutIntervalForRequest),
                                  .isSecure = isSecure,
                                  .isLoopback = host.isLoopback,
                                  .trust = isSecure && asksAboutTrust_ ? &host.trust : nullptr};
  task->exchangeBegins();
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

void CurlLoop::ended(CurlExchange& exchange, CURLcode code) {
  const std::shared_ptr<CurlTask> task = exchange.task();
  if (code != CURLE_OK && retriesLater(exchange, task, code)) return;
  task->place.host->retryDelay = {};
  if (const auto error = exchange.errorFor(code)) {
    release(exchange, false);
    forget(task);
    task->fail(error);
    return;
  }
  CurlTask::Answer answer{.response = exchange.response(),
                          .body = exchange.takeBody(),
                          .requestTime = exchange.requestTime(),
                          .responseTime = exchange.responseTime()};
  task->exchangeEnded(std::move(answer), exchange);
  release(exchange, true);
}

/// Puts the task back into its queue when its exchange may succeed later.
bool CurlLoop::retriesLater(CurlExchange& exchange, const std::shared_ptr<CurlTask>& task,
                            CURLcode code) {
  CurlHost& host = *task->place.host;
  const CurlFailure failure = exchange.failureFor(code);
  const bool isUndecided = failure.verifyResult == undecidedVerifyResult() && !exchange.hasHeader();
  const bool waits = configuration_.waitsForConnectivity && isMissingConnectivity(failure);
  if (!isUndecided && !waits) return false;
  release(exchange, false);
  if (task->isOver()) {
    forget(task);
    return true;
  }
  if (isUndecided) {
    auto question = host.trust.takeQuestion();
    if (question) askAboutTrust(host, *std::move(question));
    if (host.isAsking) {
      host.refused.push_back(task);
      return true;
    }
  } else {
    host.retryDelay = host.retryDelay == 0ms ? std::chrono::milliseconds(kFirstRetryDelay)
                                             : std::min<std::chrono::milliseconds>(
                                                   2 * host.retryDelay, kLongestRetryDelay);
    host.retryAt = now_ + host.retryDelay;
  }
  task->place.queued = host.waiting.insert(host.waiting.begin(), task);
  task->place.isQueued = true;
  touched_.push_back(&host);
  return true;
}

void CurlLoop::askAboutTrust(CurlHost& host, CurlTrust::Question question) {
  if (std::exchange(host.isAsking, true)) return;
  (void)question;
}

void CurlLoop::trustAnswered(CurlHost& host, const CurlTrust::Fingerprint& leaf,
                             std::optional<CurlTrust::Decision> decision) {
  host.isAsking = false;
  auto refused = std::exchange(host.refused, {});
  if (decision) host.trust.decide(leaf, *decision);
  for (const auto& task : refused) {
    if (task->isOver()) continue;
    if (decision) {
      task->place.queued = host.waiting.insert(host.waiting.begin(), task);
      task->place.isQueued = true;
      continue;
    }
    forget(task);
    task->fail(makeURLError(URLError::Code::userCancelledAuthentication,
                            "the server's certificate was not accepted"));
  }
  touched_.push_back(&host);
}

/// Ends an exchange for its task; the handle is kept for others after a clean end only.
void CurlLoop::release(CurlExchange& exchange, bool isReusable) {
  ::curl_multi_remove_handle(multi_, exchange.easy());
  CurlTask& task = *exchange.task();
  CurlHost& host = *task.place.host;
  task.place.exchange = nullptr;
  --host.active;
  touched_.push_back(&host);
  const std::size_t index = exchange.activeIndex;
  std::swap(active_[index], active_.back());
  active_[index]->activeIndex = index;
  auto owned = std::move(active_.back());
  active_.pop_back();
  if (!isReusable || idle_.size() >= kIdleExchanges) return;
  owned->reset();
  idle_.push_back(std::move(owned));
}

/// Takes a task out of everything on this thread; what is under way for it ends.
void CurlLoop::letGo(const std::shared_ptr<CurlTask>& task) {
  if (task->place.exchange != nullptr) release(*task->place.exchange, false);
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
  if (now_ < nextIdleCheck_) return;
  nextIdleCheck_ = TimePoint::max();
  for (std::size_t i = active_.size(); i-- > 0;) {
    const TimePoint deadline = active_[i]->idleDeadline();
    if (now_ >= deadline) {
      expire(active_[i]->task(), "the server sent nothing for too long");
    } else {
      nextIdleCheck_ = std::min(nextIdleCheck_, deadline);
    }
  }
}

void CurlLoop::armTimer() {
  TimePoint next = nextIdleCheck_;
  if (!tasks_.empty()) next = std::min(next, tasks_.front()->resourceDeadline());
  if (next >= armedFor_) return;
  armedFor_ = next;
  timer_ = after(next, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->post([](CurlLoop& loop) { loop.armedFor_ = TimePoint::max(); });
  });
}

void CurlLoop::askAboutHeaders() { headersCame_.clear(); }

void CurlLoop::tearDown() {
  timer_ = {};
  active_.clear();
  idle_.clear();
}

}  // namespace ombrix::platform::detail

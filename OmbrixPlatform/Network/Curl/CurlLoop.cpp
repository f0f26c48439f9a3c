#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <iterator>
#include <system_error>
#include <utility>

#include "OmbrixPlatform/Concurrency/InsideScope.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/UserAgent.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kIdleConnections = 64;
constexpr std::size_t kHostsKept = 256;  // more are forgotten while nothing goes there
// While more answers are ready they are handed over together: at most this many, or those of this
// many rounds.
constexpr std::size_t kDeliveriesTogether = 32;
constexpr unsigned kRoundsTogether = 8;
constexpr int kMostCertificates = 8;  // that are asked about for one transfer
constexpr auto kFirstRetryDelay = 500ms;
constexpr auto kLongestRetryDelay = 30s;
// libcurl 7.88 may leave bytes of one HTTP/2 stream lying when another of the connection has read
// them: exchanges that have shared their connection look again after these times.
constexpr auto kFirstNudgeDelay = 20ms;
constexpr auto kLongestNudgeDelay = 320ms;

void blockBrokenPipeSignal() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

std::string userAgentField() {
  const std::string agent = userAgentOfMainBundle();
  return agent.empty() ? agent : "User-Agent: " + agent;
}

/// The fields that a request gets where it has none of them. They are one line, since libcurl
/// searches each line for every field that it might add itself.
std::string usualFields() {
  const std::string agent = userAgentField();
  return CurlExchange::kCodingsField + (agent.empty() ? agent : "\r\n" + agent);
}

}  // namespace

CurlLoop::CurlLoop(const URLSessionConfiguration& configuration, std::shared_ptr<Clock> clock,
                   bool hasDelegate, std::shared_ptr<DispatchQueue> queue, bool isOwnQueue)
    : configuration_(configuration),
      clock_(std::move(clock)),
      hasDelegate_(hasDelegate),
      queue_(std::move(queue)),
      isOwnQueue_(isOwnQueue),
      maximumConnections_(std::max<std::size_t>(configuration_.httpMaximumConnections, 1)),
      maximumConnectionsPerHost_(
          std::max<std::size_t>(configuration_.httpMaximumConnectionsPerHost, 1)),
      surroundings_{.share = ::curl_share_init(),
                    .budget = std::make_shared<BodyBudget>(configuration_.maximumBodyBytesTogether),
                    .maximumBodyBytes = configuration_.maximumBodyBytes,
                    .userAgentField = userAgentField(),
                    .usualFields = usualFields(),
                    .lastURL = {}},
      multi_(::curl_multi_init()),
      hostsAllowed_(kHostsKept) {
  if (multi_ == nullptr || surroundings_.share == nullptr) fatalError("libcurl cannot be set up");
  ::curl_share_setopt(surroundings_.share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  ::curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS,
                      static_cast<long>(maximumConnectionsPerHost_));
  ::curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(kIdleConnections));
  watch_.install(multi_);
}

CurlLoop::~CurlLoop() {
  ::curl_multi_cleanup(multi_);
  ::curl_share_cleanup(surroundings_.share);
}

// Mail, from any thread.

bool CurlLoop::submit(std::shared_ptr<Transfer> transfer) {
  return handOver(std::move(transfer), nullptr);
}

void CurlLoop::post(LoopJob job) { handOver(nullptr, std::move(job)); }

bool CurlLoop::handOver(std::shared_ptr<Transfer> transfer, LoopJob job) {
  bool mustWake = false;
  {
    const LockGuard lock(lock_);
    if (isStopping_ && transfer) {
      // Its task was resumed and cancelled at the same time: it is over, and knows of no transfer.
      transfer->client = nullptr;
      return true;
    }
    if (!thread_) {
      if (!transfer) return true;  // nothing has begun that this could concern
      try {
        startThread();
      } catch (const std::system_error&) {
        return false;
      }
    }
    if (transfer) submitted_.push_back(std::move(transfer));
    if (job) jobs_.push_back(std::move(job));
    mustWake = std::exchange(isSleeping_, false);
  }
  if (mustWake) watch_.wake();
  return true;
}

void CurlLoop::startThread() {
  watch_.open();
  thread_ = NetworkThreads::shared().start([self = shared_from_this()] { self->run(); });
}

void CurlLoop::abandon(std::shared_ptr<Transfer> transfer) {
  post([transfer = std::move(transfer)](CurlLoop& loop) { loop.letGo(transfer); });
}

void CurlLoop::resumeReceiving(std::shared_ptr<Transfer> transfer) {
  post([transfer = std::move(transfer)](CurlLoop& loop) {
    CurlExchange* exchange = transfer->exchange;
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
    const LockGuard lock(lock_);
    if (std::exchange(isStopping_, true)) return;
    if (thread_) NetworkThreads::shared().oneEnds();
    mustWake = std::exchange(isSleeping_, false);
  }
  if (mustWake) watch_.wake();
}

void CurlLoop::awaitEnd() {
  std::optional<NetworkThreads::Number> thread;
  {
    const LockGuard lock(lock_);
    thread = thread_;
  }
  if (thread) NetworkThreads::shared().join(*thread);
}

// The thread.

void CurlLoop::run() {
  blockBrokenPipeSignal();
  ::pthread_setname_np(::pthread_self(), "URLSession");
  now_ = clock_->steadyNow();
  while (takeMail()) {
    checkDeadlines();
    startWaiting();
    takeTurns();
    transferOn();
    finishDone();
    noteSharedConnections();
    tellOfBodies();
    awaitMore();
  }
  tearDown();
}

/// Lets libcurl begin the started transfers, and go on where bytes have come.
void CurlLoop::transferOn() {
  int running = 0;
  ::curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
  for (const auto& [socket, events] : ready_) {
    ::curl_multi_socket_action(multi_, socket, events, &running);
  }
}

/// Finds the next round's work, and sleeps until there is some.
///
/// Sockets are looked at before a connection is reused, which shows bytes that nobody asked for.
/// Answers are handed over when no more are ready: waking a thread for each one costs as much as
/// half a request.
void CurlLoop::awaitMore() {
  const bool mayStart = !touched_.empty() && active_.size() < maximumConnections_;
  const bool mayHaveMore = !together_.empty() && !ready_.empty() && !active_.empty();
  if (together_.size() >= kDeliveriesTogether || ++roundsTogether_ >= kRoundsTogether) {
    flushTogether();
  }
  if (mayStart || mayHaveMore || surroundings_.anyYields) {
    ready_ = watch_.wait({});
    if (mayStart || !ready_.empty() || surroundings_.anyYields) return;
  }
  ready_ = {};
  flushTogether();
  armTimer();
  {
    const LockGuard lock(lock_);
    if (!submitted_.empty() || !jobs_.empty() || isStopping_) return;
    isSleeping_ = true;
  }
  sleep();
}

/// Waits for sockets, for libcurl's own timers or for mail.
void CurlLoop::sleep() {
  const bool mayStall =
      std::ranges::any_of(active_, [](const auto& exchange) { return exchange->mayStall; });
  std::chrono::milliseconds limit = mayStall ? nudgeDelay_ : longestSleep_;
  long own = -1;
  ::curl_multi_timeout(multi_, &own);
  if (own >= 0) limit = std::min(limit, std::chrono::milliseconds(own));
  ready_ = watch_.wait(limit);
  if (!mayStall || !ready_.empty()) {
    nudgeDelay_ = kFirstNudgeDelay;
    return;
  }
  {
    const LockGuard lock(lock_);
    if (!isSleeping_) return;  // mail
  }
  nudgeDelay_ = std::min<std::chrono::milliseconds>(2 * nudgeDelay_, kLongestNudgeDelay);
  nudge();
}

/// Marks the exchanges that share a connection of HTTP/2.
void CurlLoop::noteSharedConnections() {
  for (const auto& exchange : active_) {
    if (exchange->streamsConnection() == 0 || exchange->mayStall) continue;
    for (const auto& other : active_) {
      if (other == exchange || other->streamsConnection() != exchange->streamsConnection())
        continue;
      exchange->mayStall = other->mayStall = true;
      break;
    }
  }
}

/// Makes libcurl look for bytes that have arrived already. An exchange that is alone on its
/// connection by now needs no further look.
void CurlLoop::nudge() {
  for (std::size_t i = active_.size(); i-- > 0;) {
    CurlExchange& exchange = *active_[i];
    if (!std::exchange(exchange.mayStall, false)) continue;
    const CURLcode code = exchange.nudge();
    if (code != CURLE_OK) ended(exchange, code);
  }
  noteSharedConnections();
}

/// Resumes the exchanges that had stopped to let others have their turn.
void CurlLoop::takeTurns() {
  if (!std::exchange(surroundings_.anyYields, false)) return;
  for (std::size_t i = active_.size(); i-- > 0;) {
    const CURLcode code = active_[i]->takeTurn();
    if (code != CURLE_OK) ended(*active_[i], code);
  }
}

/// Does what other threads have asked for; false once the loop is to end.
bool CurlLoop::takeMail() {
  std::vector<std::shared_ptr<Transfer>> submitted;
  std::vector<LoopJob> jobs;
  {
    const LockGuard lock(lock_);
    isSleeping_ = false;
    submitted.swap(submitted_);
    jobs.swap(jobs_);
    if (isStopping_ && submitted.empty() && jobs.empty()) return false;
  }
  now_ = clock_->steadyNow();
  for (const auto& transfer : submitted) admit(transfer);
  for (auto& job : jobs) job(*this);
  return true;
}

void CurlLoop::admit(const std::shared_ptr<Transfer>& transfer) {
  if (!transfer->client || transfer->client->isOver()) {
    letGo(transfer);
    return;
  }
  auto where = transfers_.end();
  while (where != transfers_.begin() && (*std::prev(where))->deadline > transfer->deadline) {
    --where;  // it has come late
  }
  transfer->known = transfers_.insert(where, transfer);
  transfer->isKnown = true;
  CurlHost& host = hostFor(transfer->origin);
  host.isKept = host.isKept || transfer->judgesServer;
  transfer->host = &host;
  transfer->queued = host.waiting.insert(host.waiting.end(), transfer);
  transfer->isQueued = true;
  touch(host);
  if (host.active == 0 && !host.isOffline) host.connectivityFailure = nullptr;  // nobody tries it
  if (host.connectivityFailure) tellOfMissingConnectivity(*transfer);
}

CurlHost& CurlLoop::hostFor(const URLOrigin& origin) {
  if (hosts_.size() >= hostsAllowed_) forgetIdleHosts();
  auto& host = hosts_[origin];
  if (!host) {
    const bool isMapped = std::ranges::any_of(
        configuration_.loopbackHosts,
        [&](const std::string& name) { return headerNamesEqual(name, origin.host); });
    host = std::make_unique<CurlHost>(origin, configuration_.connections, isMapped);
  }
  return *host;
}

void CurlLoop::forgetIdleHosts() {
  std::erase_if(hosts_, [](const auto& entry) {
    const CurlHost& host = *entry.second;
    return host.active == 0 && host.waiting.empty() && !host.isOffline && !host.isTouched &&
           !host.isKept;
  });
  hostsAllowed_ = std::max(kHostsKept, 2 * hosts_.size());
}

/// Notes that a host may have a transfer to start, if any waits there.
void CurlLoop::touch(CurlHost& host) {
  if (!host.waiting.empty() && !std::exchange(host.isTouched, true)) touched_.push_back(&host);
}

void CurlLoop::startWaiting() {
  // A start may fail at once, and then this host is noted again.
  while (!touched_.empty() && active_.size() < maximumConnections_) {
    CurlHost& host = *touched_.front();
    touched_.pop_front();
    host.isTouched = false;
    pump(host);
  }
}

void CurlLoop::pump(CurlHost& host) {
  const bool isUndecided = !host.trust.hasDecisions();
  while (!host.waiting.empty() && !host.isAsking && !host.isOffline) {
    // Until the certificate is decided about, one handshake is enough.
    const bool asksFirst = isUndecided && host.waiting.front()->judgesServer;
    if (host.active >= (asksFirst ? 1 : maximumConnectionsPerHost_)) return;
    if (active_.size() >= maximumConnections_) return touch(host);
    auto next = std::move(host.waiting.front());
    host.waiting.pop_front();
    next->isQueued = false;
    if (!next->client->isOver()) start(host, std::move(next));
  }
}

void CurlLoop::start(CurlHost& host, std::shared_ptr<Transfer> transfer) {
  auto exchange = std::make_unique<CurlExchange>(surroundings_);
  const CurlExchange::Terms terms{.timeLimit = std::min(transfer->request->timeoutInterval,
                                                        configuration_.timeoutIntervalForRequest),
                                  .isMappedToLoopback = host.isMappedToLoopback,
                                  .bypassesProxy = host.isHere,
                                  .trust = transfer->origin.isSecure ? &host.trust : nullptr,
                                  .settings = &host.settings};
  transfer->client->exchangeBegins(now_);
  if (!exchange->begin(transfer, terms) ||
      ::curl_multi_add_handle(multi_, exchange->easy()) != CURLM_OK) {
    fail(transfer, makeURLError(URLError::Code::unknown, "the transfer cannot be set up"));
    return;
  }
  transfer->exchange = exchange.get();
  ++host.active;
  nextIdleCheck_ = std::min(nextIdleCheck_, exchange->idleDeadline());
  exchange->activeIndex = active_.size();
  active_.push_back(std::move(exchange));
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

void CurlLoop::postTogether(Job job) {
  if (together_.empty()) {
    roundsTogether_ = 0;
    together_.reserve(kDeliveriesTogether);
  }
  together_.push_back(std::move(job));
}

void CurlLoop::flushTogether() {
  if (together_.empty()) return;
  if (!isOwnQueue_) {
    // It may run several at once, which must not wait for each other.
    for (Job& job : std::exchange(together_, {})) queue_->async(std::move(job));
    return;
  }
  queue_->async([jobs = std::exchange(together_, {})]() mutable {
    for (Job& job : jobs) {
      PoolJob::goesOn();
      job();
      job = nullptr;
    }
  });
}

void CurlLoop::ended(CurlExchange& exchange, CURLcode code) {
  const CurlFailure failure = exchange.failureFor(code);
  if (exchange.errorFor(failure)) {
    failed(exchange, failure);
    return;
  }
  const std::shared_ptr<Transfer> transfer = exchange.transfer();
  isReached(*transfer->host);
  WireAnswer answer = exchange.takeAnswer();
  release(exchange);
  const auto client = transfer->client;
  forget(*transfer);
  client->answered(std::move(answer));
}

/// Handles a failed exchange as the rules say.
void CurlLoop::failed(CurlExchange& exchange, const CurlFailure& failure) {
  const std::shared_ptr<Transfer> transfer = exchange.transfer();
  auto error = exchange.errorFor(failure);
  FailedExchange facts = exchange.failed(failure);
  facts.waitsForConnectivity = configuration_.waitsForConnectivity;
  release(exchange);
  if (transfer->client->isOver()) return forget(*transfer);
  switch (afterFailure(facts)) {
    case AfterFailure::fail:
      isReached(*transfer->host);
      return fail(transfer, std::move(error));
    case AfterFailure::sendByHTTP1:
      transfer->usesHTTP1 = true;
      [[fallthrough]];
    case AfterFailure::sendAgain:
      transfer->isResend = true;
      transfer->client->requestIsResent();
      return requeue(transfer);
    case AfterFailure::tryOther:
      return requeue(transfer);
    case AfterFailure::askAboutTrust:
      return askAboutTrust(transfer);
    case AfterFailure::awaitConnectivity:
      transfer->lastConnectivityFailure = std::move(error);
      return awaitConnectivity(transfer);
  }
}

/// An exchange has ended with an answer, or with a failure that says nothing about connectivity.
void CurlLoop::isReached(CurlHost& host) {
  host.retryDelay = {};
  if (!host.isOffline) host.connectivityFailure = nullptr;
}

/// Puts a transfer first in its host's queue.
void CurlLoop::requeue(const std::shared_ptr<Transfer>& transfer) {
  CurlHost& host = *transfer->host;
  transfer->queued = host.waiting.insert(host.waiting.begin(), transfer);
  transfer->isQueued = true;
  touch(host);
}

void CurlLoop::awaitConnectivity(const std::shared_ptr<Transfer>& transfer) {
  CurlHost& host = *transfer->host;
  host.connectivityFailure = transfer->lastConnectivityFailure;
  requeue(transfer);
  if (std::exchange(host.isOffline, true)) return tellOfMissingConnectivity(*transfer);
  host.retryDelay = std::clamp<std::chrono::milliseconds>(2 * host.retryDelay, kFirstRetryDelay,
                                                          kLongestRetryDelay);
  host.retryAt = now_ + host.retryDelay;
  offline_.push_back(&host);
  for (const auto& waiting : host.waiting) tellOfMissingConnectivity(*waiting);
}

/// Tells a transfer that waits for its host why, as other transfers have found.
void CurlLoop::tellOfMissingConnectivity(Transfer& transfer) {
  transfer.lastConnectivityFailure = transfer.host->connectivityFailure;
  transfer.client->waitsForConnectivity();
}

void CurlLoop::connectivityMayBeBack() {
  post([](CurlLoop& loop) { loop.retryOffline(true); });
}

void CurlLoop::retryOffline(bool isForced) {
  std::erase_if(offline_, [&](CurlHost* host) {
    if (!isForced && now_ < host->retryAt) return false;
    host->isOffline = false;
    touch(*host);
    return true;
  });
}

void CurlLoop::askAboutTrust(const std::shared_ptr<Transfer>& transfer) {
  CurlHost& host = *transfer->host;
  if (++transfer->certificatesAskedAbout > kMostCertificates) {
    return fail(transfer, makeURLError(URLError::Code::serverCertificateUntrusted,
                                       "the server shows another certificate each time"));
  }
  if (host.isAsking) {
    host.refused.push_back(transfer);
    return;
  }
  auto question = host.trust.takeQuestion();
  if (!question) return requeue(transfer);  // decided about meanwhile
  const auto leaf = question->leaf;
  host.isAsking =
      transfer->client->askAboutTrust({host.trust.spaceFor(std::move(question->trust))},
                                      [weak = weak_from_this(), &host, leaf](auto decision) {
                                        const auto self = weak.lock();
                                        if (!self) return;
                                        self->post([&host, leaf, decision](CurlLoop& loop) {
                                          loop.trustAnswered(host, leaf, decision);
                                        });
                                      });
  if (host.isAsking) {
    host.refused.push_back(transfer);
  } else {
    forget(*transfer);  // over meanwhile: the next handshake asks
  }
}

/// Lets the refused transfers try again, or ends them when the answer was to cancel.
void CurlLoop::trustAnswered(CurlHost& host, const CurlTrust::Fingerprint& leaf,
                             std::optional<CurlTrust::Decision> decision) {
  host.isAsking = false;
  touch(host);
  if (decision) host.trust.decide(leaf, *decision);
  for (const auto& transfer : std::exchange(host.refused, {})) {
    if (!transfer->client || transfer->client->isOver()) continue;
    if (decision) {
      requeue(transfer);
    } else {
      fail(transfer, makeURLError(URLError::Code::userCancelledAuthentication,
                                  "the server's certificate was not accepted"));
    }
  }
}

/// Ends an exchange for its transfer.
void CurlLoop::release(CurlExchange& exchange) {
  ::curl_multi_remove_handle(multi_, exchange.easy());
  Transfer& transfer = *exchange.transfer();
  transfer.exchange = nullptr;
  CurlHost& host = *transfer.host;
  // No transfer tries any more, so whether the host can be reached is unknown.
  if (--host.active == 0 && !host.isOffline) host.connectivityFailure = nullptr;
  touch(host);
  const std::size_t index = exchange.activeIndex;
  std::swap(active_[index], active_.back());
  active_[index]->activeIndex = index;
  active_.pop_back();
}

/// Takes a transfer out of everything on this thread; what is under way for it ends.
void CurlLoop::letGo(const std::shared_ptr<Transfer>& transfer) {
  if (transfer->exchange != nullptr) release(*transfer->exchange);
  if (std::exchange(transfer->isQueued, false)) transfer->host->waiting.erase(transfer->queued);
  forget(*transfer);
}

/// Releases the client of a transfer that has ended.
void CurlLoop::forget(Transfer& transfer) {
  const auto client = std::exchange(transfer.client, nullptr);
  if (std::exchange(transfer.isKnown, false)) transfers_.erase(transfer.known);
}

void CurlLoop::fail(const std::shared_ptr<Transfer>& transfer,
                    std::shared_ptr<const URLError> error) {
  const auto client = transfer->client;
  letGo(transfer);
  if (client) client->failed(std::move(error));
}

void CurlLoop::expire(const std::shared_ptr<Transfer>& transfer, const char* sentence) {
  const auto kept = transfer;  // the lists release it
  const bool isConnecting = kept->exchange == nullptr || !kept->exchange->hasConnection();
  auto error = isConnecting ? kept->lastConnectivityFailure : nullptr;
  if (!error) error = makeURLError(URLError::Code::timedOut, sentence);
  fail(kept, std::move(error));
}

void CurlLoop::checkDeadlines() {
  while (!transfers_.empty() && now_ >= transfers_.front()->deadline) {
    expire(transfers_.front(), "the answer did not come in time");
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
      const auto transfer = exchange.transfer();
      release(exchange);
      if (!transfer->lastConnectivityFailure) {
        transfer->lastConnectivityFailure = makeURLError(
            URLError::Code::cannotConnectToHost, "no connection to the server came about in time");
      }
      awaitConnectivity(transfer);
    } else {
      expire(exchange.transfer(), "the server sent nothing for too long");
    }
  }
}

void CurlLoop::armTimer() {
  TimePoint next = nextIdleCheck_;
  if (!transfers_.empty()) next = std::min(next, transfers_.front()->deadline);
  for (const CurlHost* host : offline_) next = std::min(next, host->retryAt);
  if (next >= armedFor_) return;
  try {
    timer_ = after(next, [weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->post([](CurlLoop& loop) { loop.armedFor_ = TimePoint::max(); });
    });
    armedFor_ = next;
    longestSleep_ = kLongestSleep;
  } catch (const std::exception&) {
    longestSleep_ = kSleepWithoutTimer;  // there are no descriptors left for one
  }
}

/// Reports answers whose body is still coming; for whole ones the end is report enough.
void CurlLoop::tellOfBodies() {
  if (!hasDelegate_) return;
  for (const auto& exchange : active_) {
    if (exchange->hasHeader()) exchange->transfer()->client->bodyIsStillComing();
  }
}

void CurlLoop::tearDown() {
  timer_ = {};
  active_.clear();
}

}  // namespace ombrix::platform::detail

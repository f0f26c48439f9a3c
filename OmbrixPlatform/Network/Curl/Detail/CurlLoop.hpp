#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlConnectionSettings.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlExchange.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlTrust.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/Transfer.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"
#include "OmbrixPlatform/Network/URLSessionConfiguration.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform::detail {

/// The transfers to one host and port: those in flight and, in order, those that wait.
struct CurlHost {
  using TimePoint = std::chrono::steady_clock::time_point;

  CurlHost(const URLOrigin& origin, const URLConnectionSettings& ours, bool isMapped)
      : trust(origin.host, origin.port),
        settings(ours, origin.host),
        isMappedToLoopback(isMapped),
        isHere(isMapped || isLoopback(origin.host)) {}

  CurlTrust trust;
  const CurlConnectionSettings settings;
  const bool isMappedToLoopback;
  const bool isHere;  // on this machine
  std::list<std::shared_ptr<Transfer>> waiting;
  std::size_t active = 0;
  bool isTouched = false;  // is among those that may have something to start
  bool isKept = false;     // its trust may be in use by connections
  bool isAsking = false;   // the delegate is deciding about a certificate
  std::vector<std::shared_ptr<Transfer>> refused;  // by that question
  bool isOffline = false;                          // nothing starts before
  TimePoint retryAt{};
  std::chrono::milliseconds retryDelay{};
  // Why it is offline, or was before the present attempts began.
  std::shared_ptr<const URLError> connectivityFailure;
};

/// The network thread of one session: a libcurl multi handle, the queues in front of it and the
/// deadlines of the transfers in flight. The thread starts with the first transfer and ends after
/// `stop`.
class CurlLoop : public std::enable_shared_from_this<CurlLoop> {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using LoopJob = std::move_only_function<void(CurlLoop&)>;

  /// @param queue The session's delegate queue, for `postTogether`.
  /// @param isOwnQueue Whether that is a serial one that nobody else uses.
  CurlLoop(const URLSessionConfiguration& configuration, std::shared_ptr<Clock> clock,
           bool hasDelegate, std::shared_ptr<DispatchQueue> queue, bool isOwnQueue);
  ~CurlLoop();

  // Any thread.

  /// Queues a transfer for its host. False when there is no thread and none can be started.
  [[nodiscard]] bool submit(std::shared_ptr<Transfer> transfer);

  /// Runs a job on the network thread, after all that was handed over before.
  void post(LoopJob job);

  /// Ends a transfer that nobody waits for, and its connection; its client gets no further call.
  void abandon(std::shared_ptr<Transfer> transfer);

  /// Resumes receiving after a client had to wait.
  void resumeReceiving(std::shared_ptr<Transfer> transfer);

  /// Tries again at once where connectivity was missing.
  void connectivityMayBeBack();

  /// Runs a job on the delegate queue, together with the others of this moment: waking a thread for
  /// each one costs as much as half a request. Network thread.
  void postTogether(Job job);

  /// Ends the thread; the tasks of all transfers are over. A second call does nothing.
  void stop();

  /// Waits for the thread to be gone, after `stop`.
  void awaitEnd();

 private:
  static constexpr std::chrono::milliseconds kLongestSleep = std::chrono::hours(1);
  static constexpr std::chrono::milliseconds kSleepWithoutTimer{100};

  bool handOver(std::shared_ptr<Transfer> transfer, LoopJob job);
  void startThread() OMBRIX_REQUIRES(lock_);
  void run();
  void transferOn();
  void awaitMore();
  void sleep();
  bool takeMail();
  void admit(const std::shared_ptr<Transfer>& transfer);
  CurlHost& hostFor(const URLOrigin& origin);
  void forgetIdleHosts();
  void touch(CurlHost& host);
  void pump(CurlHost& host);
  void startWaiting();
  void start(CurlHost& host, std::shared_ptr<Transfer> transfer);
  void finishDone();
  void takeTurns();
  void noteSharedConnections();
  void nudge();
  void flushTogether();
  void ended(CurlExchange& exchange, CURLcode code);
  void failed(CurlExchange& exchange, const CurlFailure& failure);
  static void isReached(CurlHost& host);
  void requeue(const std::shared_ptr<Transfer>& transfer);
  void awaitConnectivity(const std::shared_ptr<Transfer>& transfer);
  static void tellOfMissingConnectivity(Transfer& transfer);
  void retryOffline(bool isForced);
  void askAboutTrust(const std::shared_ptr<Transfer>& transfer);
  void trustAnswered(CurlHost& host, const CurlTrust::Fingerprint& leaf,
                     std::optional<CurlTrust::Decision> decision);
  void tellOfBodies();
  void release(CurlExchange& exchange);
  void letGo(const std::shared_ptr<Transfer>& transfer);
  void forget(Transfer& transfer);
  void fail(const std::shared_ptr<Transfer>& transfer, std::shared_ptr<const URLError> error);
  void expire(const std::shared_ptr<Transfer>& transfer, const char* sentence);
  void checkDeadlines();
  void armTimer();
  void tearDown();

  const URLSessionConfiguration configuration_;
  const std::shared_ptr<Clock> clock_;
  const bool hasDelegate_;
  const std::shared_ptr<DispatchQueue> queue_;
  const bool isOwnQueue_;
  const std::size_t maximumConnections_;
  const std::size_t maximumConnectionsPerHost_;

  FutexLock lock_;
  std::vector<std::shared_ptr<Transfer>> submitted_ OMBRIX_GUARDED_BY(lock_);
  std::vector<LoopJob> jobs_ OMBRIX_GUARDED_BY(lock_);
  std::optional<NetworkThreads::Number> thread_ OMBRIX_GUARDED_BY(lock_);
  bool isSleeping_ OMBRIX_GUARDED_BY(lock_) = false;
  bool isStopping_ OMBRIX_GUARDED_BY(lock_) = false;

  // Network thread only.
  CurlSurroundings surroundings_;
  TimePoint& now_ = surroundings_.now;
  SocketWatch& watch_ = surroundings_.sockets.watch();
  CURLM* const multi_;
  std::list<std::shared_ptr<Transfer>> transfers_;  // all, in the order of their resource deadlines
  std::unordered_map<URLOrigin, std::unique_ptr<CurlHost>, URLOrigin::Hash> hosts_;
  std::size_t hostsAllowed_;       // beyond some number, idle ones are forgotten
  std::deque<CurlHost*> touched_;  // may have something to start
  std::vector<std::unique_ptr<CurlExchange>> active_;
  std::vector<Job> together_;
  std::vector<CurlHost*> offline_;  // waiting for connectivity
  TimePoint nextIdleCheck_ = TimePoint::max();
  TimePoint armedFor_ = TimePoint::max();
  EventToken timer_;
  std::chrono::milliseconds nudgeDelay_{20};
  std::chrono::milliseconds longestSleep_ = kLongestSleep;
  std::span<const SocketWatch::Ready> ready_;  // at the last look
  unsigned roundsTogether_ = 0;                // since the first of `together_`
};

}  // namespace ombrix::platform::detail

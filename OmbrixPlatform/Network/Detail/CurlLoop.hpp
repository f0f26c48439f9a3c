#pragma once

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Network/Detail/CurlExchange.hpp"
#include "OmbrixPlatform/Network/Detail/CurlTask.hpp"
#include "OmbrixPlatform/Network/Detail/CurlTrust.hpp"
#include "OmbrixPlatform/Network/URLSessionConfiguration.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform::detail {

/// The transfers to one host and port: those under way and, in order, those that wait.
struct CurlHost {
  using TimePoint = std::chrono::steady_clock::time_point;

  CurlHost(const CurlOrigin& origin, bool isMapped)
      : trust(origin.host, origin.port), isMappedToLoopback(isMapped) {}

  CurlTrust trust;
  const bool isMappedToLoopback;
  std::list<std::shared_ptr<CurlTask>> waiting;
  std::size_t active = 0;
  bool isAsking = false;                           // the delegate decides about a certificate
  std::vector<std::shared_ptr<CurlTask>> refused;  // by that question
  bool isOffline = false;                          // nothing starts before:
  TimePoint retryAt{};
  std::chrono::milliseconds retryDelay{};
};

/// The network thread of one session: a libcurl multi handle, the queues in front of it and the
/// deadlines of what is under way. The thread starts with the first task and ends after `stop`.
class CurlLoop : public std::enable_shared_from_this<CurlLoop> {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using LoopJob = std::move_only_function<void(CurlLoop&)>;

  /// @param ownQueue The session's own serial queue, on which the handlers of answers that come
  ///   together are called in one go; null when it uses another's.
  CurlLoop(const URLSessionConfiguration& configuration, std::shared_ptr<Clock> clock,
           bool asksDelegate, std::shared_ptr<DispatchQueue> ownQueue);
  ~CurlLoop();

  // Any thread.

  /// Takes a task to its current request's host.
  void submit(std::shared_ptr<CurlTask> task);

  /// Runs a job on the network thread, after what was handed over before.
  void post(LoopJob job);

  /// Lets go of a task that is over, its connection included.
  void abandon(std::shared_ptr<CurlTask> task);

  /// Goes on receiving for a task that had to wait.
  void resumeReceiving(std::shared_ptr<CurlTask> task);

  /// Tries again at once where connectivity was missing.
  void connectivityMayBeBack();

  /// Lets go of a task whose exchange is over; network thread.
  void forget(const std::shared_ptr<CurlTask>& task);

  /// Concludes a task on the session's own queue, together with others. Network thread.
  void deliver(std::shared_ptr<CurlTask> task, CurlTask::Answer answer);

  /// Whether there is such a queue.
  [[nodiscard]] bool delivers() const noexcept { return ownQueue_ != nullptr; }

  /// Ends the thread; no task may be left.
  void stop();

 private:
  void handOver(std::shared_ptr<CurlTask> task, LoopJob job);
  void run();
  void sleep();
  bool takeMail();
  void admit(const std::shared_ptr<CurlTask>& task);
  CurlHost& hostFor(const CurlOrigin& origin);
  void pump(CurlHost& host);
  void startWaiting();
  bool start(CurlHost& host, std::shared_ptr<CurlTask> task);
  void finishDone();
  void flushDeliveries();
  void ended(CurlExchange& exchange, CURLcode code);
  bool sendsAgain(CurlExchange& exchange, const std::shared_ptr<CurlTask>& task);
  bool retriesLater(CurlExchange& exchange, const std::shared_ptr<CurlTask>& task, CURLcode code);
  void requeue(const std::shared_ptr<CurlTask>& task);
  void awaitConnectivity(const std::shared_ptr<CurlTask>& task);
  void retryOffline(bool isForced);
  void askAboutTrust(const std::shared_ptr<CurlTask>& task, CurlTrust::Question question);
  void trustAnswered(CurlHost& host, const CurlTrust::Fingerprint& leaf,
                     std::optional<CurlTrust::Decision> decision);
  void askAboutHeaders();
  void release(CurlExchange& exchange);
  void letGo(const std::shared_ptr<CurlTask>& task);
  void expire(const std::shared_ptr<CurlTask>& task, const char* message);
  void checkDeadlines();
  void armTimer();
  void tearDown();

  const URLSessionConfiguration configuration_;
  const std::shared_ptr<Clock> clock_;
  const bool asksDelegate_;

  const std::shared_ptr<DispatchQueue> ownQueue_;

  FutexLock lock_;  // guards the mail
  std::vector<std::shared_ptr<CurlTask>> submitted_;
  std::vector<LoopJob> jobs_;
  bool hasThread_ = false;
  bool isSleeping_ = false;
  bool isStopping_ = false;

  // Network thread only.
  CurlSockets sockets_;
  CURLM* const multi_;
  TimePoint now_;
  std::list<std::shared_ptr<CurlTask>> tasks_;  // all, in the order of their resource deadlines
  std::unordered_map<CurlOrigin, std::unique_ptr<CurlHost>, CurlOrigin::Hash> hosts_;
  std::vector<CurlHost*> touched_;  // may have something to start
  std::vector<std::unique_ptr<CurlExchange>> active_;
  std::vector<std::pair<std::shared_ptr<CurlTask>, CurlTask::Answer>> deliveries_;
  std::vector<CurlHost*> offline_;  // waiting for connectivity
  TimePoint nextIdleCheck_ = TimePoint::max();
  TimePoint armedFor_ = TimePoint::max();
  EventToken timer_;
  std::chrono::milliseconds nudgeDelay_{20};
  bool hasStarted_ = false;  // transfers since the last look at the sockets
};

}  // namespace ombrix::platform::detail

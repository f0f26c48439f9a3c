#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <chrono>
#include <exception>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Detail/OpenSSL.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlURLSession.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferTask.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace detail {
namespace {

// Longer than this machine's monitor takes at the most.
constexpr std::chrono::seconds kLongestWaitForPath{2};

}  // namespace

CurlURLSession::CurlURLSession(const URLSessionConfiguration& configuration,
                               std::shared_ptr<URLSessionDelegate> delegate,
                               std::shared_ptr<DispatchQueue> delegateQueue)
    : configuration_(configuration),
      delegateQueue_(delegateQueue ? delegateQueue : DispatchQueue::serial("URLSession.delegate")),
      clock_(services().clock.shared()),
      loop_(std::make_shared<CurlLoop>(configuration_, clock_, delegate != nullptr, delegateQueue_,
                                       delegateQueue == nullptr)),
      delegate_(std::move(delegate)) {
  (void)NetworkThreads::shared();  // which learns of forks from now on
  // The first request should already know whether the path refuses it.
  if (!configuration_.allowsConstrainedNetworkAccess) watchPath();
}

CurlURLSession::~CurlURLSession() {
  if (pathMonitor_) pathMonitor_->cancel();
  loop_->stop();
}

std::shared_ptr<URLSessionDelegate> CurlURLSession::delegate() const {
  const LockGuard lock(lock_);
  return delegate_;
}

NWPathMonitor& CurlURLSession::watchPath() {
  std::call_once(pathOnce_, [this] {
    pathMonitor_ = services().pathMonitorFactory.shared()->make();
    pathMonitor_->setPathUpdateHandler(
        [weak = std::weak_ptr(loop_), gate = pathGate_](const NWPath& path) {
          gate->open();
          const auto loop = weak.lock();
          if (loop && path.status != NWPath::Status::unsatisfied) loop->connectivityMayBeBack();
        });
    // Also where no route leads out: a server may be a neighbour on a new link.
    pathMonitor_->setNetworkChangeHandler([weak = std::weak_ptr(loop_)] {
      if (const auto loop = weak.lock()) loop->connectivityMayBeBack();
    });
    try {
      afterUncancellably(clock_->steadyNow() + kLongestWaitForPath,
                         [weak = std::weak_ptr(pathGate_)] {
                           if (const auto gate = weak.lock()) gate->open();
                         });
    } catch (const std::exception&) {
      pathGate_->open();  // there are no descriptors left for a timer, nor for the monitor
    }
  });
  pathMonitor_->start();  // again where it could not
  return *pathMonitor_;
}

void CurlURLSession::whenPathIsKnown(Job job) {
  watchPath();
  pathGate_->pass(std::move(job));
}

std::shared_ptr<TransferTask> CurlURLSession::makeTask(URLRequest request,
                                                       URLSessionCompletionHandler handler) {
  auto task = std::make_shared<TransferTask>(shared_from_this(), ++lastIdentifier_,
                                             std::move(request), std::move(handler));
  const LockGuard lock(lock_);
  // What is made too late is not waited for.
  if (!isInvalid_) task->setPlaceInSession(tasks_.insert(tasks_.end(), task.get()));
  return task;
}

std::shared_ptr<URLSessionDataTask> CurlURLSession::dataTask(
    URLRequest request, URLSessionCompletionHandler completionHandler) {
  return makeTask(std::move(request), std::move(completionHandler));
}

std::shared_ptr<URLSessionUploadTask> CurlURLSession::uploadTask(
    URLRequest request, std::optional<SharedData> body,
    URLSessionCompletionHandler completionHandler) {
  if (body) request.httpBody = std::move(body);
  return makeTask(std::move(request), std::move(completionHandler));
}

void CurlURLSession::taskIsOver(TaskList::iterator place) {
  {
    const LockGuard lock(lock_);
    tasks_.erase(place);
  }
  endWhenIdle();
}

void CurlURLSession::finishTasksAndInvalidate() {
  {
    const LockGuard lock(lock_);
    isInvalid_ = true;
  }
  endWhenIdle();
}

void CurlURLSession::invalidateAndCancel() {
  std::vector<std::shared_ptr<TransferTask>> tasks;
  {
    const LockGuard lock(lock_);
    isInvalid_ = true;
    for (TransferTask* task : tasks_) {
      if (auto kept = task->weak_from_this().lock()) tasks.push_back(std::move(kept));
    }
  }
  for (const auto& task : tasks) task->cancel();
  endWhenIdle();
}

/// Tells the delegate once that the session has ended, and releases it.
void CurlURLSession::endWhenIdle() {
  std::shared_ptr<URLSessionDelegate> delegate;
  {
    const LockGuard lock(lock_);
    if (!isInvalid_ || hasEnded_ || !tasks_.empty()) return;
    hasEnded_ = true;
    delegate = std::move(delegate_);
  }
  const auto self = weak_from_this().lock();
  if (!delegate || !self) return endIsTold_.set_value();
  post([self, delegate = std::move(delegate)] {
    delegate->didBecomeInvalid(*self);
    self->endIsTold_.set_value();
  });
}

void CurlURLSession::close() {
  if (delegateQueue_->isCurrent()) {
    fatalError("a handler must not wait for the end of its session");
  }
  invalidateAndCancel();
  if (isForkedChild()) return;  // no call runs here that could be waited for
  {
    const ThreadPool::BlockingScope blocking;
    end_.wait();
    // The jobs of that moment, with all that the caller's closures hold.
    std::promise<void> promise;
    const auto isIdle = promise.get_future();
    delegateQueue_->asyncBarrier([promise = std::move(promise)]() mutable { promise.set_value(); });
    isIdle.wait();
  }
  loop_->stop();
  loop_->awaitEnd();
}

namespace {

class CurlURLSessionFactory final : public URLSessionFactory {
 public:
  CurlURLSessionFactory() {
    setUpOpenSSL();
    if (::curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) fatalError("libcurl is unusable");
  }

  std::shared_ptr<URLSession> make(const URLSessionConfiguration& configuration,
                                   std::shared_ptr<URLSessionDelegate> delegate,
                                   std::shared_ptr<DispatchQueue> delegateQueue) override {
    return std::make_shared<CurlURLSession>(configuration, std::move(delegate),
                                            std::move(delegateQueue));
  }
};

}  // namespace
}  // namespace detail

std::shared_ptr<URLSessionFactory> makeSystemURLSessionFactory() {
  // One for the process: libcurl is set up once.
  static const auto& factory = *new auto(std::make_shared<detail::CurlURLSessionFactory>());
  return factory;
}

template <>
std::shared_ptr<URLSessionFactory> makeDefault() {
  return makeSystemURLSessionFactory();
}

}  // namespace ombrix::platform

#include <semaphore>

#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixCore/Networking/Policies/RequestFlows.hpp"
#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

using platform::DispatchQueue;
using platform::NSOperationQueue;

const std::shared_ptr<DispatchQueue>& OmbrixServerAPI::dispatchQueue() {
  static const auto& queue = *new auto(
      DispatchQueue::concurrent(platform::Bundle::main().bundleIdentifier().value_or("") + ".api",
                                platform::QualityOfService::userInitiated));
  return queue;
}

std::shared_ptr<NSOperationQueue> OmbrixServerAPI::madeOnce(
    std::shared_ptr<NSOperationQueue> OmbrixServerAPI::* member, const char* name,
    std::ptrdiff_t width) {
  const platform::LockGuard lock(mutex_);
  auto& queue = this->*member;
  if (!queue) {
    queue = NSOperationQueue::make(name);
    queue->setUnderlyingQueue(dispatchQueue());
    queue->setMaxConcurrentOperationCount(width);
    queueObservations_.push_back(
        queue->emptinessDidChange.connect([this] { updateHasOperations(); }));
  }
  return queue;
}

std::shared_ptr<NSOperationQueue> OmbrixServerAPI::operationQueue() {
  static const auto width = static_cast<std::ptrdiff_t>(
      platform::URLSessionConfiguration::defaultConfiguration().httpMaximumConnectionsPerHost);
  return madeOnce(&OmbrixServerAPI::operationQueue_, "API Queue", width);
}

std::shared_ptr<NSOperationQueue> OmbrixServerAPI::transferQueue() {
  return madeOnce(&OmbrixServerAPI::transferQueue_, "API Transfers",
                  NSOperationQueue::kDefaultMaxConcurrentOperationCount);
}

void OmbrixServerAPI::addOperation(std::shared_ptr<OmbrixAPIHttpRequestOperation> operation) {
  const auto queue = operation->isLongTransfer() ? transferQueue() : operationQueue();
  queue->addOperation(std::move(operation));
}

void OmbrixServerAPI::cancelAllOperations() {
  flows_->cancelAll();
  operationQueue()->cancelAllOperations();
  transferQueue()->cancelAllOperations();
}

void OmbrixServerAPI::waitUntilAllOperationsAreFinished() {
  operationQueue()->waitUntilAllOperationsAreFinished();
}

void OmbrixServerAPI::waitUntilAllAnswersAreDelivered() {
  if (dispatchQueue()->isCurrent()) {
    platform::fatalError("an answer of the client must not wait for the others");
  }
  waitUntilAllOperationsAreFinished();
  flows_->waitUntilNoneIsLeft();
  // Each delivery was posted before its operation had finished; a delivery that is running may post
  // the outcomes that came meanwhile.
  for (int round = 0; round < 2; ++round) {
    std::binary_semaphore isReached{0};
    dispatchQueue()->asyncBarrier([&] { isReached.release(); });
    const platform::ThreadPool::BlockingScope blocking;
    isReached.acquire();
  }
}

void OmbrixServerAPI::cancelRequestWithID(const platform::UUID& id) {
  const auto operation = HttpRequestOperation::withTaskID(id);
  if (operation &&
      (operationQueue()->contains(*operation) || transferQueue()->contains(*operation))) {
    operation->cancel();
  }
  subscriptions_->cancel(id);
}

void OmbrixServerAPI::updateHasOperations() {
  hasOperations_.update([this] {
    std::shared_ptr<NSOperationQueue> requests, transfers;
    {
      const platform::LockGuard lock(mutex_);
      requests = operationQueue_;
      transfers = transferQueue_;
    }
    return externalHTTPRequests_ > 0 || (requests && requests->operationCount() > 0) ||
           (transfers && transfers->operationCount() > 0);
  });
}

void OmbrixServerAPI::trackExternalHTTPRequest() {
  ++externalHTTPRequests_;
  updateHasOperations();
}

void OmbrixServerAPI::completeExternalHTTPRequest() {
  auto count = externalHTTPRequests_.load();
  while (count > 0 && !externalHTTPRequests_.compare_exchange_weak(count, count - 1)) {
  }
  updateHasOperations();
}

}  // namespace ombrix

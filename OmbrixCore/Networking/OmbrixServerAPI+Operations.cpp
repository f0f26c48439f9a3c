#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixPlatform/Bundles/Bundle.hpp"

namespace ombrix {

using platform::DispatchQueue;
using platform::NSOperationQueue;

const std::shared_ptr<DispatchQueue>& OmbrixServerAPI::dispatchQueue() {
  static const auto& queue = *new auto(
      DispatchQueue::concurrent(platform::Bundle::main().bundleIdentifier().value_or("") + ".api",
                                platform::QualityOfService::userInitiated));
  return queue;
}

std::shared_ptr<NSOperationQueue> OmbrixServerAPI::operationQueue() {
  const std::lock_guard lock(mutex_);
  if (!operationQueue_) {
    operationQueue_ = NSOperationQueue::make("API Queue");
    operationQueue_->setUnderlyingQueue(dispatchQueue());
    const auto width =
        platform::URLSessionConfiguration::defaultConfiguration().httpMaximumConnectionsPerHost;
    operationQueue_->setMaxConcurrentOperationCount(static_cast<std::ptrdiff_t>(width));
    queueObservation_ =
        operationQueue_->observe("operationCount", platform::KeyValueObservingOptions::none,
                                 [this](const auto&) { updateHasOperations(); });
  }
  return operationQueue_;
}

void OmbrixServerAPI::addOperation(std::shared_ptr<OmbrixAPIHttpRequestOperation> operation) {
  operationQueue()->addOperation(std::move(operation));
}

void OmbrixServerAPI::cancelAllOperations() { operationQueue()->cancelAllOperations(); }

void OmbrixServerAPI::waitUntilAllOperationsAreFinished() {
  operationQueue()->waitUntilAllOperationsAreFinished();
}

void OmbrixServerAPI::cancelRequestWithID(const platform::UUID& id) {
  const auto operation = HttpRequestOperation::withTaskID(id);
  if (operation && operationQueue()->contains(*operation)) operation->cancel();
  subscriptions_->cancel(id);
}

void OmbrixServerAPI::updateHasOperations() {
  hasOperations_.update([this] {
    std::shared_ptr<NSOperationQueue> queue;
    {
      const std::lock_guard lock(mutex_);
      queue = operationQueue_;
    }
    return externalHTTPRequests_ > 0 || (queue && queue->operationCount() > 0);
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

#include "OmbrixCore/Data/Stores/PresenterWrapper.hpp"

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"

namespace ombrix::detail {

using platform::DispatchPriority;
using platform::DispatchQueue;
using platform::NSOperationQueue;

std::shared_ptr<NSOperationQueue> makePresenterQueue(std::string name) {
  auto queue = NSOperationQueue::make(std::move(name));
  queue->setMaxConcurrentOperationCount(1);
  queue->setUnderlyingQueue(DispatchQueue::global(DispatchPriority::background).shared_from_this());
  return queue;
}

std::optional<platform::URL> PresenterWrapper::presentedItemURL() const {
  const auto wrapped = wrapped_.lock();
  return wrapped ? wrapped->presentedItemURL() : std::nullopt;
}

std::shared_ptr<NSOperationQueue> PresenterWrapper::presentedItemOperationQueue() const {
  if (const auto wrapped = wrapped_.lock()) return wrapped->presentedItemOperationQueue();
  std::call_once(backupOnce_,
                 [this] { backupQueue_ = makePresenterQueue("PresenterWrapper weak queue"); });
  return backupQueue_;
}

bool PresenterWrapper::represents(const platform::NSFilePresenter& presenter) const {
  return wrapped_.lock().get() == &presenter;
}

}  // namespace ombrix::detail

#include "OmbrixCore/Networking/Requests/UploadTaskPublisher.hpp"

#include <utility>

#include "OmbrixCore/Networking/Requests/Detail/RequestTaskDelegate.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix {

using platform::Demand;
using platform::URLError;

/// The running upload of one subscriber.
class UploadTaskPublisher::Inner final : public platform::Subscription,
                                         public std::enable_shared_from_this<Inner> {
 public:
  using Completion = platform::Completion<URLError>;

  Inner(std::shared_ptr<const Parent> parent, AnySubscriber downstream)
      : parent_(std::move(parent)), downstream_(std::move(downstream)) {}

  void request(Demand demand) override {
    if (demand.isNone()) platform::fatalError("a subscriber requested no values");
    std::shared_ptr<platform::URLSessionUploadTask> task;
    std::shared_ptr<const Parent> begun;
    {
      const platform::LockGuard lock(lock_);
      if (!parent_) return;
      if (!task_) {
        task_ = makeTask();
        begun = parent_;
      }
      demand_ += demand;
      task = task_;
    }
    if (begun && begun->handleTask) {
      platform::callOut("a handler of tasks", [&] { begun->handleTask(task); });
    }
    task->resume();
  }

  void cancel() override {
    // Declared in this order, so that they are released after the lock.
    std::shared_ptr<const Parent> parent;
    AnySubscriber downstream;
    std::shared_ptr<platform::URLSessionUploadTask> task;
    {
      const platform::LockGuard lock(lock_);
      parent.swap(parent_);
      downstream.swap(downstream_);
      task.swap(task_);
    }
    if (task) task->cancel();
  }

 private:
  std::shared_ptr<platform::URLSessionUploadTask> makeTask() OMBRIX_REQUIRES(lock_) {
    auto task = parent_->session->uploadTask(
        parent_->request, parent_->data,
        [self = shared_from_this()](std::optional<platform::Data> data, auto response,
                                    const auto& error) {
          self->taskEnded(std::move(data), std::move(response), error.get());
        });
    if (parent_->progress) {
      task->setDelegate(
          std::make_shared<detail::RequestTaskDelegate>(nullptr, parent_->progress, nullptr));
    }
    return task;
  }

  void taskEnded(std::optional<platform::Data> data,
                 std::shared_ptr<const platform::URLResponse> response,
                 const platform::Error* error) {
    std::shared_ptr<const Parent> parent;
    std::shared_ptr<platform::URLSessionUploadTask> task;
    AnySubscriber downstream;
    {
      const platform::LockGuard lock(lock_);
      if (demand_.isNone()) return;
      parent.swap(parent_);
      downstream.swap(downstream_);
      task.swap(task_);
    }
    if (!downstream) return;
    if (response && !error) {
      downstream->receiveValue({std::move(data).value_or(platform::Data()), std::move(response)});
      downstream->receiveCompletion(Completion::finished());
      return;
    }
    const auto* transport = dynamic_cast<const URLError*>(error);
    downstream->receiveCompletion(
        Completion::failure(transport ? *transport : URLError(URLError::Code::unknown)));
  }

  platform::FutexLock lock_;
  std::shared_ptr<const Parent> parent_ OMBRIX_GUARDED_BY(lock_);  // null once it is over
  AnySubscriber downstream_ OMBRIX_GUARDED_BY(lock_);
  Demand demand_ OMBRIX_GUARDED_BY(lock_) = Demand::none();
  // Made on the first demand.
  std::shared_ptr<platform::URLSessionUploadTask> task_ OMBRIX_GUARDED_BY(lock_);
};

UploadTaskPublisher::UploadTaskPublisher(platform::URLRequest request,
                                         std::shared_ptr<platform::URLSession> session,
                                         std::optional<platform::Data> data)
    : parent_(std::make_shared<const Parent>(
          Parent{std::move(request), std::move(session), std::move(data)})) {}

UploadTaskPublisher UploadTaskPublisher::onProgress(RequestOptions::ProgressHandler handler) const {
  auto watched = std::make_shared<Parent>(*parent_);
  watched->progress = std::move(handler);
  UploadTaskPublisher same = *this;
  same.parent_ = std::move(watched);
  return same;
}

UploadTaskPublisher UploadTaskPublisher::onTask(TaskHandler handler) const {
  auto watched = std::make_shared<Parent>(*parent_);
  watched->handleTask = std::move(handler);
  UploadTaskPublisher same = *this;
  same.parent_ = std::move(watched);
  return same;
}

void UploadTaskPublisher::receive(AnySubscriber subscriber) const {
  const auto inner = std::make_shared<Inner>(parent_, subscriber);
  subscriber->receiveSubscription(inner);
}

UploadTaskPublisher uploadTaskPublisher(std::shared_ptr<platform::URLSession> session,
                                        platform::URLRequest request,
                                        std::optional<platform::Data> data) {
  return {std::move(request), std::move(session), std::move(data)};
}

}  // namespace ombrix

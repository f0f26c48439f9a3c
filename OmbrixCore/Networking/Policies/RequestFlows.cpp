#include "OmbrixCore/Networking/Policies/RequestFlows.hpp"

#include <utility>
#include <vector>

#include "OmbrixCore/Networking/Policies/Detail/RequestFlow.hpp"
#include "OmbrixCore/Networking/Policies/Detail/TokenRefreshes.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix {

using detail::RequestFlow;

RequestFlows::RequestFlows() : refreshes_(std::make_shared<detail::TokenRefreshes>()) {}
RequestFlows::~RequestFlows() = default;

void RequestFlows::setPolicies(RequestPolicies policies) {
  auto shared = std::make_shared<const RequestPolicies>(std::move(policies));
  const platform::LockGuard lock(mutex_);
  policies_.swap(shared);
}

std::optional<platform::AnyPublisher<HTTPAnswer, HTTPError>> RequestFlows::publisherOf(
    const std::shared_ptr<OmbrixAPIHttpRequestOperation>& operation) {
  std::shared_ptr<const RequestPolicies> current;
  {
    const platform::LockGuard lock(mutex_);
    current = policies_;
  }
  const auto& options = operation->options();
  if (!current && !(options && options->retry)) return std::nullopt;
  return platform::AnyPublisher<HTTPAnswer, HTTPError>::subscribingWith(
      [self = shared_from_this(), current = std::move(current),
       operation](const RequestFlow::AnySubscriber& subscriber) {
        subscriber->receiveSubscription(
            std::make_shared<RequestFlow>(self, current, operation, subscriber));
      });
}

void RequestFlows::add(const std::shared_ptr<RequestFlow>& flow) {
  const platform::LockGuard lock(mutex_);
  running_.emplace(flow.get(), flow);
  if (!flow->isLong()) ++requests_;
}

void RequestFlows::remove(const RequestFlow& flow) {
  std::shared_ptr<RequestFlow> removed;
  const platform::LockGuard lock(mutex_);
  const auto found = running_.find(&flow);
  if (found == running_.end()) return;
  removed = std::move(found->second);
  running_.erase(found);
  if (!removed->isLong()) --requests_;
  isOneLess_.notify_all();
}

void RequestFlows::cancelAll() {
  std::vector<std::shared_ptr<RequestFlow>> all;
  {
    const platform::LockGuard lock(mutex_);
    for (const auto& [key, flow] : running_) all.push_back(flow);
  }
  for (const auto& flow : all) flow->cancel();
}

void RequestFlows::waitUntilNoneIsLeft() {
  const platform::ThreadPool::BlockingScope blocking;
  const platform::LockGuard lock(mutex_);
  isOneLess_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return requests_ == 0; });
}

}  // namespace ombrix

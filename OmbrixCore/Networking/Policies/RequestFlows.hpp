#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <unordered_map>

#include "OmbrixCore/Networking/Policies/RequestPolicies.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

class OmbrixAPIHttpRequestOperation;

namespace detail {
class RequestFlow;
class TokenRefreshes;
}  // namespace detail

/// A client's requests under policies, and their shared state. Part of the client. Any thread.
class RequestFlows : public std::enable_shared_from_this<RequestFlows> {
 public:
  RequestFlows();
  ~RequestFlows();

  void setPolicies(RequestPolicies policies);

  /// A request, given by its first attempt, under the client's policies and those of its own
  /// options; empty if there are none. It can be subscribed to once.
  [[nodiscard]] std::optional<platform::AnyPublisher<HTTPAnswer, HTTPError>> publisherOf(
      const std::shared_ptr<OmbrixAPIHttpRequestOperation>& operation);

  /// Ends all of them, like cancelling their operations.
  void cancelAll();

  /// Blocks until none is left but the long transfers.
  void waitUntilNoneIsLeft();

 private:
  friend class detail::RequestFlow;

  void add(const std::shared_ptr<detail::RequestFlow>& flow);
  void remove(const detail::RequestFlow& flow);

  const std::shared_ptr<detail::TokenRefreshes> refreshes_;
  platform::Mutex mutex_;
  platform::Condition isOneLess_;
  std::shared_ptr<const RequestPolicies> policies_ OMBRIX_GUARDED_BY(mutex_);  // null for none
  std::unordered_map<const detail::RequestFlow*, std::shared_ptr<detail::RequestFlow>> running_
      OMBRIX_GUARDED_BY(mutex_);
  std::size_t requests_ OMBRIX_GUARDED_BY(mutex_) = 0;  // of these, without the long transfers
};

}  // namespace ombrix

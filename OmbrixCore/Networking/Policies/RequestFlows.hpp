#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "OmbrixCore/Networking/Policies/RequestPolicies.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

class OmbrixAPIHttpRequestOperation;

namespace detail {
class RequestFlow;
class TokenRefreshes;
}  // namespace detail

/// The requests of a client that policies are about, and what these share. Part of the client. Any
/// thread.
class RequestFlows : public std::enable_shared_from_this<RequestFlows> {
 public:
  RequestFlows();
  ~RequestFlows();

  void setPolicies(RequestPolicies policies);

  /// A request, by its first attempt, under the client's policies and those of its own options;
  /// nothing where there are none. It can be subscribed to once.
  [[nodiscard]] std::optional<platform::AnyPublisher<HTTPAnswer, HTTPError>> publisherOf(
      const std::shared_ptr<OmbrixAPIHttpRequestOperation>& operation);

  /// Ends all of them, as cancelling their operations does.
  void cancelAll();

  /// Blocks until none is left but the long transfers.
  void waitUntilNoneIsLeft();

 private:
  friend class detail::RequestFlow;

  void add(const std::shared_ptr<detail::RequestFlow>& flow);
  void remove(const detail::RequestFlow& flow);

  const std::shared_ptr<detail::TokenRefreshes> refreshes_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable isOneLess_;
  std::shared_ptr<const RequestPolicies> policies_;  // null for none
  std::unordered_map<const detail::RequestFlow*, std::shared_ptr<detail::RequestFlow>> running_;
  std::size_t requests_ = 0;  // of these, without the long transfers
};

}  // namespace ombrix

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixCore/Networking/Policies/RequestPolicies.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix::detail {

/// The token refreshes in flight, at most one for each environment. Any thread.
class TokenRefreshes : public std::enable_shared_from_this<TokenRefreshes> {
 public:
  /// Called once with whether there is a token that was not refused, perhaps inside the call,
  /// otherwise on the client's queue.
  using Waiter = std::move_only_function<void(bool hasToken)>;

  /// Waits for the environment's refresh in flight, or begins one, unless the client has another
  /// token than the refused one by now.
  void await(const TokenRefresher& refresher, std::uint64_t environment, const std::string& refused,
             Waiter waiter);

 private:
  struct Refresh;

  static platform::Async<void> run(std::shared_ptr<TokenRefreshes> self,
                                   std::shared_ptr<Refresh> refresh);
  void begin(const std::shared_ptr<Refresh>& refresh);
  void finish(const std::shared_ptr<Refresh>& refresh, std::optional<std::string> token);

  platform::FutexLock lock_;  // also guards the refreshes' contents
  std::map<std::uint64_t, std::shared_ptr<Refresh>> running_ OMBRIX_GUARDED_BY(lock_);
};

}  // namespace ombrix::detail

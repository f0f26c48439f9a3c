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

/// The refreshes of tokens that are under way, one at the most for each environment. Any thread.
class TokenRefreshes : public std::enable_shared_from_this<TokenRefreshes> {
 public:
  /// Told whether there is a token that was not refused; once, perhaps inside the call, else on the
  /// client's queue.
  using Waiter = std::move_only_function<void(bool hasToken)>;

  /// Waits for the refresh of an environment that is under way, or begins one, unless the client
  /// has another token than the refused one by now.
  void await(const TokenRefresher& refresher, std::uint64_t environment, const std::string& refused,
             Waiter waiter);

 private:
  struct Refresh;

  static platform::Async<void> run(std::shared_ptr<TokenRefreshes> self,
                                   std::shared_ptr<Refresh> refresh);
  void begin(const std::shared_ptr<Refresh>& refresh);
  void finish(const std::shared_ptr<Refresh>& refresh, std::optional<std::string> token);

  platform::FutexLock lock_;  // over what the refreshes hold, too
  std::map<std::uint64_t, std::shared_ptr<Refresh>> running_ OMBRIX_GUARDED_BY(lock_);
};

}  // namespace ombrix::detail

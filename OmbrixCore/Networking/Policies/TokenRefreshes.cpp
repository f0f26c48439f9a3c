#include "OmbrixCore/Networking/Policies/Detail/TokenRefreshes.hpp"

#include <utility>
#include <vector>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"

namespace ombrix::detail {
namespace {

using platform::Async;

constexpr LogTag kTag{"OmbrixCore/Networking/TokenRefreshes", "run()"};

}  // namespace

struct TokenRefreshes::Refresh {
  Refresh(const TokenRefresher& how, std::uint64_t whose, std::string what)
      : refresher(how), environment(whose), refused(std::move(what)) {}

  const TokenRefresher refresher;
  const std::uint64_t environment;
  const std::string refused;
  std::vector<Waiter> waiters;
  platform::EventToken limit;
  bool isEnding = false;
};

void TokenRefreshes::await(const TokenRefresher& refresher, std::uint64_t environment,
                           const std::string& refused, Waiter waiter) {
  std::shared_ptr<Refresh> begun;
  bool hasToken = false;
  {
    const platform::LockGuard lock(lock_);
    const auto running = running_.find(environment);
    if (running != running_.end()) {
      running->second->waiters.push_back(std::move(waiter));
      return;
    }
    // The new token is stored before the refresh is taken off the list, so that every caller finds
    // one of the two.
    const auto token = OmbrixServerAPI::sharedInstance().jwtToken(environment);
    hasToken = token && *token != refused;
    if (token == refused) {
      begun = std::make_shared<Refresh>(refresher, environment, refused);
      begun->waiters.push_back(std::move(waiter));
      running_.emplace(environment, begun);
    }
  }
  if (begun) return begin(begun);
  waiter(hasToken);  // without a token the user has signed out meanwhile
}

void TokenRefreshes::begin(const std::shared_ptr<Refresh>& refresh) {
  const auto deadline = platform::deadlineAfter(refresh->refresher.timeLimit);
  auto work = [self = shared_from_this(), refresh] { return run(self, refresh); };
  const auto task = platform::startTask(std::move(work));
  auto expire = [weak = weak_from_this(), weakRefresh = std::weak_ptr(refresh), task] {
    task.cancel();
    auto end = [weak, weakRefresh] {
      const auto self = weak.lock();
      const auto late = weakRefresh.lock();
      if (self && late) self->finish(late, std::nullopt);
    };
    OmbrixServerAPI::dispatchQueue()->async(std::move(end));
  };
  auto limit = platform::after(deadline, std::move(expire));
  const platform::LockGuard lock(lock_);
  if (!refresh->isEnding) std::swap(refresh->limit, limit);
}

Async<void> TokenRefreshes::run(std::shared_ptr<TokenRefreshes> self,
                                std::shared_ptr<Refresh> refresh) {
  std::optional<std::string> token;
  try {
    RequestOptions ownRequests;
    ownRequests.refreshesToken = false;
    auto work = refresh->refresher.refresh(std::move(ownRequests));
    std::string fresh = co_await std::move(work);
    token = std::move(fresh);
  } catch (...) {
    // The exception's text is the host's, and may contain the token.
    logWarning(kTag, "Web: Could not refresh the token");
  }
  auto end = [self, refresh, token = std::move(token)]() mutable {
    self->finish(refresh, std::move(token));
  };
  OmbrixServerAPI::dispatchQueue()->async(std::move(end));
}

void TokenRefreshes::finish(const std::shared_ptr<Refresh>& refresh,
                            std::optional<std::string> token) {
  platform::EventToken limit;
  {
    const platform::LockGuard lock(lock_);
    if (std::exchange(refresh->isEnding, true)) return;
    std::swap(limit, refresh->limit);
  }
  auto& client = OmbrixServerAPI::sharedInstance();
  if (token && !token->empty()) client.setJwtToken(std::move(token), refresh->environment);
  // An answer or a new login may have brought another token all the same.
  const auto current = client.jwtToken(refresh->environment);
  const bool hasToken = current && *current != refresh->refused;
  if (current == refresh->refused) client.triggerLoginError();
  std::vector<Waiter> waiters;
  {
    const platform::LockGuard lock(lock_);
    running_.erase(refresh->environment);
    waiters.swap(refresh->waiters);
  }
  for (auto& waiter : waiters) waiter(hasToken);
}

}  // namespace ombrix::detail

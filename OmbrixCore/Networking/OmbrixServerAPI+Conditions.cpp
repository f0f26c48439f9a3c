#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

namespace ombrix {

void OmbrixServerAPI::startPathMonitor() {
  networkMonitor_->setPathUpdateHandler([weak = weak_from_this()](const platform::NWPath& path) {
    if (const auto self = weak.lock()) self->pathChanged(path);
  });
  // Nobody observes yet, so the flags hold the first state without an announcement.
  pathChanged(networkMonitor_->currentPath());
  networkMonitor_->start();
}

void OmbrixServerAPI::pathChanged(const platform::NWPath& path) {
  isReachable_.set(path.status != platform::NWPath::Status::unsatisfied);
  isLimited_.set(path.isConstrained);
  isExpensive_.set(path.isExpensive);
}

std::optional<std::string> OmbrixServerAPI::jwtToken() const {
  const platform::LockGuard lock(mutex_);
  return jwtToken_;
}

void OmbrixServerAPI::setJwtToken(std::optional<std::string> token) {
  const platform::LockGuard lock(mutex_);
  jwtToken_.swap(token);
}

void OmbrixServerAPI::setJwtToken(std::optional<std::string> token, std::uint64_t ofEnvironment) {
  const platform::LockGuard lock(mutex_);
  if (ofEnvironment == environment_) jwtToken_.swap(token);
}

std::optional<std::string> OmbrixServerAPI::jwtToken(std::uint64_t ofEnvironment) const {
  const platform::LockGuard lock(mutex_);
  return ofEnvironment == environment_ ? jwtToken_ : std::nullopt;
}

void OmbrixServerAPI::take(ServiceConditions conditions, std::uint64_t environment) {
  bool mustAnnounceLogin = false;
  bool mustAnnounceMaintenance = false;
  {
    const platform::LockGuard lock(mutex_);
    if (environment != environment_) return;
    if (conditions.token) jwtToken_.swap(conditions.token);
    if (conditions.isLoginInvalid) mustAnnounceLogin = loginError_.store(true);
    mustAnnounceMaintenance = maintenance_.store(conditions.isInMaintenance);
  }
  if (mustAnnounceLogin) loginError_.announceChanges();
  if (mustAnnounceMaintenance) maintenance_.announceChanges();
}

void OmbrixServerAPI::setForceLogoutHandler(std::function<void()> handler) {
  const platform::LockGuard lock(mutex_);
  forceLogoutHandler_.swap(handler);
}

void OmbrixServerAPI::setMaintenanceHandler(std::function<void()> handler) {
  const platform::LockGuard lock(mutex_);
  maintenanceHandler_.swap(handler);
}

void OmbrixServerAPI::call(std::function<void()> OmbrixServerAPI::* handler) const {
  std::function<void()> current;
  {
    const platform::LockGuard lock(mutex_);
    current = this->*handler;
  }
  if (current) current();
}

std::optional<bool> OmbrixServerAPI::valueForKey(std::string_view key) const {
  for (const auto* flag :
       {&hasOperations_, &isReachable_, &isLimited_, &isExpensive_, &loginError_, &maintenance_}) {
    if (flag->key() == key) return flag->announced();
  }
  return std::nullopt;
}

}  // namespace ombrix

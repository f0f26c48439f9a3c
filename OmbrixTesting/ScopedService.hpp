#pragma once

#include <memory>
#include <utility>

#include "OmbrixPlatform/Services.hpp"

namespace ombrix::testing {

/// Puts a double into a service's slot and restores the previous one at the end of the scope.
///
///     auto clock = std::make_shared<ManualClock>();
///     ScopedService scoped(services().clock, clock);
template <class Service>
class ScopedService {
 public:
  ScopedService(platform::ServiceSlot<Service>& slot, std::shared_ptr<Service> service)
      : slot_(slot), previous_(slot.set(std::move(service))) {}
  ~ScopedService() { slot_.set(std::move(previous_)); }
  ScopedService(const ScopedService&) = delete;
  ScopedService& operator=(const ScopedService&) = delete;

 private:
  platform::ServiceSlot<Service>& slot_;
  std::shared_ptr<Service> previous_;
};

template <class Service, class Double>
ScopedService(platform::ServiceSlot<Service>&, std::shared_ptr<Double>) -> ScopedService<Service>;

}  // namespace ombrix::testing

#pragma once

#include <atomic>
#include <memory>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform {

class Bundle;
class Clock;
class Directories;
class Executor;
class LocaleService;
class MemoryWarningSource;
class NSUbiquitousKeyValueStore;
class NWPathMonitorFactory;
class SystemLog;
class URLSessionFactory;
class UserDefaults;

/// Makes the default of a service. Each room of the platform defines that of its own service beside
/// its adapter, so that a program links only the rooms whose services it uses. Null for a service
/// that has none. Any thread.
template <class Service>
std::shared_ptr<Service> makeDefault() {
  return nullptr;
}
template <>
std::shared_ptr<Bundle> makeDefault();
template <>
std::shared_ptr<Clock> makeDefault();
template <>
std::shared_ptr<Directories> makeDefault();
template <>
std::shared_ptr<Executor> makeDefault();
template <>
std::shared_ptr<LocaleService> makeDefault();
template <>
std::shared_ptr<MemoryWarningSource> makeDefault();
template <>
std::shared_ptr<NSUbiquitousKeyValueStore> makeDefault();
template <>
std::shared_ptr<NWPathMonitorFactory> makeDefault();
template <>
std::shared_ptr<SystemLog> makeDefault();
template <>
std::shared_ptr<URLSessionFactory> makeDefault();
template <>
std::shared_ptr<UserDefaults> makeDefault();

/// One replaceable service: made on first use, or put there by the host or a test.
template <class Service>
class ServiceSlot {
 public:
  using Factory = std::shared_ptr<Service> (*)();

  /// @param factory Makes the default; null for `makeDefault`.
  explicit constexpr ServiceSlot(Factory factory = nullptr) noexcept : factory_(factory) {}
  ServiceSlot(const ServiceSlot&) = delete;
  ServiceSlot& operator=(const ServiceSlot&) = delete;

  /// The service in use; made now when this is the first use. Any thread.
  ///
  /// The reference stays valid until the slot is set again: hosts set services before they use
  /// the library, tests while nothing else runs.
  Service& get() {
    if (Service* service = service_.load(std::memory_order_acquire)) return *service;
    return *shared();
  }

  /// The same, shared: for users that outlive a replacement.
  std::shared_ptr<Service> shared() {
    const LockGuard lock(mutex_);
    if (!owner_) install(factory_ ? factory_() : makeDefault<Service>());
    return owner_;
  }

  /// Puts another service in place and gives the one it replaces (null when none was made yet);
  /// setting null brings the default back on next use.
  std::shared_ptr<Service> set(std::shared_ptr<Service> service) {
    const LockGuard lock(mutex_);
    auto previous = std::move(owner_);
    install(std::move(service));
    return previous;
  }

 private:
  void install(std::shared_ptr<Service> service) OMBRIX_REQUIRES(mutex_) {
    owner_ = std::move(service);
    service_.store(owner_.get(), std::memory_order_release);
  }

  Factory factory_;
  Mutex mutex_;
  std::shared_ptr<Service> owner_ OMBRIX_GUARDED_BY(mutex_);
  std::atomic<Service*> service_{nullptr};
};

/// What a host or a test may swap. Nothing here is made before its first use.
struct Services {
  ServiceSlot<Clock> clock;
  ServiceSlot<NSUbiquitousKeyValueStore> cloudStore;
  ServiceSlot<Directories> directories;
  ServiceSlot<LocaleService> locale;
  ServiceSlot<Bundle> mainBundle;
  ServiceSlot<Executor> mainExecutor;
  ServiceSlot<MemoryWarningSource> memoryWarnings;
  ServiceSlot<NWPathMonitorFactory> pathMonitorFactory;
  ServiceSlot<UserDefaults> standardDefaults;
  ServiceSlot<SystemLog> systemLog;
  ServiceSlot<URLSessionFactory> urlSessionFactory;
};

/// The services of this process. They live until it ends; nothing is torn down. Any thread.
Services& services();

}  // namespace ombrix::platform

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Network/NWPathMonitor.hpp"
#include "OmbrixPlatform/Network/Path/Detail/NetworkManagerMetered.hpp"
#include "OmbrixPlatform/Network/Path/Detail/RouteTable.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

// How long the first report waits for the bus, which may be silent.
constexpr itimerspec kLongestWaitForBus{.it_interval = {}, .it_value = {.tv_sec = 1, .tv_nsec = 0}};

NWPath pathNow(bool isMetered) {
  // Where the kernel does not answer, nothing is known, and a request may well get through.
  const bool isSatisfied = detail::hasWayOut().value_or(true);
  return {.status = isSatisfied ? NWPath::Status::satisfied : NWPath::Status::unsatisfied,
          .isConstrained = isMetered,
          .isExpensive = isMetered};
}

struct Handlers {
  NWPathMonitor::UpdateHandler update;
  std::move_only_function<void()> change;
};

/// What a running monitor watches. The set of descriptors is one descriptor itself, so that one
/// token ends it all. Everything but `path` belongs to the events thread once that has begun.
class Watch {
 public:
  explicit Watch(std::shared_ptr<Handlers> handlers)
      : handlers_(std::move(handlers)),
        all_(::epoll_create1(EPOLL_CLOEXEC)),
        first_(::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)),
        overdue_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
        routes_(detail::openRouteEvents()) {
    (void)::timerfd_settime(overdue_.get(), 0, &kLongestWaitForBus, nullptr);
    add(first_.get());
    add(overdue_.get());
    if (routes_) add(routes_.get());
    manager_.connect();
    followManager();
  }

  /// Readable when something has come in; -1 where too few descriptors are left to watch.
  [[nodiscard]] int descriptor() const noexcept { return first_ && overdue_ ? all_.get() : -1; }

  [[nodiscard]] std::optional<NWPath> path() const {
    const LockGuard lock(mutex_);
    return path_;
  }

  /// Something has come in.
  void look() {
    std::uint64_t ignored = 0;
    (void)!::read(first_.get(), &ignored, sizeof ignored);
    const bool isOverdue = ::read(overdue_.get(), &ignored, sizeof ignored) > 0;
    const bool wasMetered = manager_.isMetered();
    manager_.process();
    const bool isChanged = routes_ && detail::drainRouteEvents(routes_.get());
    if (isChanged) manager_.connect();  // a bus that was missing may be there by now
    followManager();
    // A first report without an answer might call a metered network unmetered.
    const bool mustReport = path() ? isChanged || manager_.isMetered() != wasMetered
                                   : isOverdue || manager_.hasAnswer();
    if (mustReport) report();
    if (isChanged && handlers_->change) handlers_->change();
  }

 private:
  void add(int descriptor) const {
    epoll_event event{.events = EPOLLIN, .data = {.fd = descriptor}};
    (void)::epoll_ctl(all_.get(), EPOLL_CTL_ADD, descriptor, &event);
  }

  /// Waits for the events that the bus wants next. A closed socket has left the set by itself, and
  /// the next one may have its number; so modifying the entry is tried first.
  void followManager() const {
    const int bus = manager_.descriptor();
    if (bus < 0) return;
    epoll_event event{.events = manager_.events(), .data = {.fd = bus}};
    if (::epoll_ctl(all_.get(), EPOLL_CTL_MOD, bus, &event) != 0) {
      (void)::epoll_ctl(all_.get(), EPOLL_CTL_ADD, bus, &event);
    }
  }

  void report() {
    const NWPath now = pathNow(manager_.isMetered());
    {
      const LockGuard lock(mutex_);
      if (std::exchange(path_, now) == now) return;
    }
    if (handlers_->update) handlers_->update(now);
  }

  const std::shared_ptr<Handlers> handlers_;
  const detail::Descriptor all_;
  const detail::Descriptor first_;    // readable once, for the first look
  const detail::Descriptor overdue_;  // readable once, when the first report must wait no longer
  const detail::Descriptor routes_;
  detail::NetworkManagerMetered manager_;
  mutable Mutex mutex_;
  std::optional<NWPath> path_ OMBRIX_GUARDED_BY(mutex_);
};

class RtnetlinkPathMonitor final : public NWPathMonitor {
 public:
  ~RtnetlinkPathMonitor() override { cancel(); }

  void setPathUpdateHandler(UpdateHandler handler) override {
    const LockGuard lock(mutex_);
    handlers_->update = std::move(handler);
  }

  void setNetworkChangeHandler(std::move_only_function<void()> handler) override {
    const LockGuard lock(mutex_);
    handlers_->change = std::move(handler);
  }

  void start() override {
    const LockGuard lock(mutex_);
    if (isStarted_) return;
    auto watch = std::make_shared<Watch>(handlers_);
    try {
      token_ = whenReadable(watch->descriptor(), [watch] { watch->look(); });
    } catch (const std::exception&) {
      return;  // for want of descriptors
    }
    isStarted_ = true;
    watch_ = std::move(watch);
  }

  void cancel() override {
    EventToken token;
    std::shared_ptr<Watch> watch;
    {
      const LockGuard lock(mutex_);
      isStarted_ = true;
      token = std::move(token_);
      watch = std::move(watch_);
    }
    token.cancel();
  }

  NWPath currentPath() const override {
    std::shared_ptr<Watch> watch;
    {
      const LockGuard lock(mutex_);
      watch = watch_;
    }
    const auto seen = watch ? watch->path() : std::nullopt;
    return seen ? *seen : pathNow(false);
  }

 private:
  mutable Mutex mutex_;
  const std::shared_ptr<Handlers> handlers_ = std::make_shared<Handlers>();
  bool isStarted_ OMBRIX_GUARDED_BY(mutex_) = false;
  std::shared_ptr<Watch> watch_ OMBRIX_GUARDED_BY(mutex_);
  EventToken token_ OMBRIX_GUARDED_BY(mutex_);
};

class RtnetlinkPathMonitorFactory final : public NWPathMonitorFactory {
 public:
  std::shared_ptr<NWPathMonitor> make() override {
    return std::make_shared<RtnetlinkPathMonitor>();
  }
};

}  // namespace

std::shared_ptr<NWPathMonitorFactory> makeSystemPathMonitorFactory() {
  return std::make_shared<RtnetlinkPathMonitorFactory>();
}

template <>
std::shared_ptr<NWPathMonitorFactory> makeDefault() {
  return makeSystemPathMonitorFactory();
}

}  // namespace ombrix::platform

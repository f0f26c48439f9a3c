#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Network/NWPathMonitor.hpp"

namespace ombrix::testing {

/// A path monitor that reports what a test sets. Handlers run on a queue of its own. Any thread.
class ManualPathMonitor final : public platform::NWPathMonitor,
                                public std::enable_shared_from_this<ManualPathMonitor> {
 public:
  /// @param isLate Whether it reports nothing before the first `setPath`.
  explicit ManualPathMonitor(platform::NWPath path = {}, bool isLate = false)
      : isLate_(isLate), path_(path) {}

  void setPathUpdateHandler(UpdateHandler handler) override {
    const platform::LockGuard lock(mutex_);
    handler_ = std::move(handler);
  }

  void setNetworkChangeHandler(std::move_only_function<void()> handler) override {
    const platform::LockGuard lock(mutex_);
    changeHandler_ = std::move(handler);
  }

  void start() override {
    {
      const platform::LockGuard lock(mutex_);
      if (std::exchange(isStarted_, true)) return;
    }
    if (!isLate_) queue_->async([self = shared_from_this()] { self->report(); });
  }

  void cancel() override {
    {
      const platform::LockGuard lock(mutex_);
      isStarted_ = isCancelled_ = true;
    }
    if (!queue_->isCurrent()) queue_->sync([] {});
  }

  platform::NWPath currentPath() const override {
    const platform::LockGuard lock(mutex_);
    return path_;
  }

  /// Simulates a network change that leaves the path the same.
  void change() {
    queue_->sync([this] {
      const bool isCancelled = [this] {
        const platform::LockGuard lock(mutex_);
        return isCancelled_;
      }();
      if (changeHandler_ && !isCancelled) changeHandler_();
    });
  }

  /// Sets the path; the handler has been called with it when this returns, except when called from
  /// a handler.
  void setPath(platform::NWPath path) {
    {
      const platform::LockGuard lock(mutex_);
      path_ = path;
    }
    if (queue_->isCurrent()) {
      queue_->async([self = shared_from_this()] { self->report(); });
    } else {
      queue_->sync([this] { report(); });
    }
  }

 private:
  /// Runs on the queue; once the monitor has started, only the queue uses the handler.
  void report() {
    platform::NWPath now;
    {
      const platform::LockGuard lock(mutex_);
      if (!isStarted_ || isCancelled_ || reported_ == path_) return;
      reported_ = now = path_;
    }
    if (handler_) handler_(now);
  }

  const std::shared_ptr<platform::DispatchQueue> queue_ =
      platform::DispatchQueue::serial("ManualPathMonitor");
  const bool isLate_;
  mutable platform::Mutex mutex_;
  UpdateHandler handler_;
  std::move_only_function<void()> changeHandler_;
  platform::NWPath path_ OMBRIX_GUARDED_BY(mutex_);
  std::optional<platform::NWPath> reported_ OMBRIX_GUARDED_BY(mutex_);
  bool isStarted_ OMBRIX_GUARDED_BY(mutex_) = false;
  bool isCancelled_ OMBRIX_GUARDED_BY(mutex_) = false;
};

/// Creates monitors that all report the same path.
///
///     auto paths = std::make_shared<ManualPathMonitorFactory>();
///     ScopedService scoped(services().pathMonitorFactory, paths);
///     paths->setPath({.status = NWPath::Status::unsatisfied});
class ManualPathMonitorFactory final : public platform::NWPathMonitorFactory {
 public:
  /// @param isLate Whether its monitors report nothing before the next `setPath`.
  explicit ManualPathMonitorFactory(bool isLate = false) : isLate_(isLate) {}

  std::shared_ptr<platform::NWPathMonitor> make() override {
    const platform::LockGuard lock(mutex_);
    auto monitor = std::make_shared<ManualPathMonitor>(path_, isLate_);
    monitors_.push_back(monitor);
    return monitor;
  }

  /// Sets the path of all monitors, including later ones; their handlers have been called with it
  /// when this returns.
  void setPath(platform::NWPath path) {
    for (const auto& monitor : monitors(path)) monitor->setPath(path);
  }

  /// Simulates a network change that leaves the path the same.
  void change() {
    for (const auto& monitor : monitors(std::nullopt)) monitor->change();
  }

 private:
  std::vector<std::shared_ptr<ManualPathMonitor>> monitors(std::optional<platform::NWPath> path) {
    std::vector<std::shared_ptr<ManualPathMonitor>> monitors;
    const platform::LockGuard lock(mutex_);
    if (path) path_ = *path;
    std::erase_if(monitors_, [](const auto& monitor) { return monitor.expired(); });
    for (const auto& monitor : monitors_) monitors.push_back(monitor.lock());
    std::erase(monitors, nullptr);
    return monitors;
  }

  const bool isLate_;
  platform::Mutex mutex_;
  platform::NWPath path_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<std::weak_ptr<ManualPathMonitor>> monitors_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::testing

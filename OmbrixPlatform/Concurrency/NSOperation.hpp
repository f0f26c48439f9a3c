#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"

namespace ombrix::platform {

class NSOperation;

namespace detail {

/// What an operation knows of the queue it is in.
class OperationOwner {
 public:
  virtual ~OperationOwner() = default;
  virtual void operationChanged(NSOperation& operation) = 0;
  virtual void operationFinished(NSOperation& operation) = 0;

  /// The owner's own record of an operation.
  struct Entry;
};

}  // namespace detail

/// A piece of work for an operation queue; always held by `std::shared_ptr`.
///
/// A subclass overrides `main`, or, when it finishes later than `start` returns, `start`,
/// `isExecuting`, `isFinished` and `isAsynchronous`, and announces each change of these with
/// `announceChange`. Observable keys: "ready", "executing", "finished", "cancelled" (1 or 0), and
/// what subclasses add. All operations may be called from any thread; overrides too.
class NSOperation : public KeyValueObserving<std::int64_t>,
                    public std::enable_shared_from_this<NSOperation> {
 public:
  NSOperation();
  ~NSOperation() override;

  /// True when it may start: every dependency has finished, or it is cancelled, which no longer
  /// waits for anything.
  [[nodiscard]] virtual bool isReady() const;
  [[nodiscard]] virtual bool isExecuting() const;
  [[nodiscard]] virtual bool isFinished() const;
  [[nodiscard]] virtual bool isAsynchronous() const { return false; }
  [[nodiscard]] bool isCancelled() const { return isCancelled_.load(); }

  /// Runs `main` unless it is cancelled, and finishes. Does nothing the second time. Called by the
  /// queue, on its threads.
  virtual void start();

  /// The work; empty here.
  virtual void main() {}

  /// Marks it as cancelled, which never takes it out of its queue: it is started, and finishes.
  virtual void cancel();

  /// Makes this operation wait for another one. Before it is put on a queue.
  void addDependency(const std::shared_ptr<NSOperation>& operation);

  /// The operations it waits for; let go when it finishes.
  [[nodiscard]] std::vector<std::shared_ptr<NSOperation>> dependencies() const;

  /// Runs on the thread pool once it has finished; set before it is put on a queue.
  void setCompletionBlock(std::function<void()> block);

  /// Blocks until it has finished.
  void waitUntilFinished() const;

  [[nodiscard]] std::string name() const;
  void setName(std::string name);

  /// The keys whose changes change the property `key` as well.
  [[nodiscard]] virtual std::set<std::string> keyPathsForValuesAffectingValue(
      std::string_view key) const;

 protected:
  /// Runs `change`, which changes the property `key`, between the announcements to observers of the
  /// key and of all that it affects; then dependants and the queue look at the operation again. No
  /// lock may be held.
  void announceChange(std::string_view key, const std::function<void()>& change);

  std::optional<std::int64_t> valueForKey(std::string_view key) const override;

 private:
  friend class NSOperationQueue;
  enum class Phase : std::uint8_t { ready, executing, finished };

  void lookAgain();
  void finishOnce();
  void dependencyFinished();
  /// Enters the queue once in a lifetime; false the second time.
  bool enter(std::shared_ptr<detail::OperationOwner> owner);
  std::shared_ptr<detail::OperationOwner> owner() const;

  std::atomic<bool> isCancelled_{false};
  std::atomic<Phase> phase_{Phase::ready};
  std::atomic<std::uint32_t> hasFinished_{0};
  mutable FutexLock mutex_;
  bool wasQueued_ = false;
  std::size_t unfinishedDependencies_ = 0;
  std::vector<std::shared_ptr<NSOperation>> dependencies_;
  std::vector<std::weak_ptr<NSOperation>> dependants_;
  std::shared_ptr<detail::OperationOwner> owner_;
  std::shared_ptr<detail::OperationOwner::Entry> entry_;  // guarded by the owner
  std::function<void()> completionBlock_;
  std::string name_;
};

}  // namespace ombrix::platform

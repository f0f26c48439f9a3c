#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/InsideScope.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"

namespace ombrix::platform {

class NSOperation;

namespace detail {

struct OperationSegment;

/// What a queue keeps about an operation in it; guarded by the queue.
struct OperationEntry {
  std::shared_ptr<NSOperation> operation;  // while it is in the queue
  OperationSegment* segment = nullptr;
  NSOperation* previous = nullptr;  // in the order of adding
  NSOperation* next = nullptr;
  std::size_t rank = 0;                // by its priority; 0 is the most urgent
  NSOperation* readyBefore = nullptr;  // among the ready ones of its segment and rank
  NSOperation* readyAfter = nullptr;
  bool isQueued = false;  // in that list, or started
  bool isStarted = false;
};

/// Implemented by the queue: is told what an operation in it does. Called without a lock.
class OperationListener {
 public:
  virtual ~OperationListener() = default;

  /// The operation may have become ready.
  virtual void operationChanged(NSOperation& operation) = 0;

  /// Called once.
  ///
  /// @param isLastAct Whether the pool job that calls this ends right after it.
  /// @return The operation, if the queue still held it.
  virtual std::shared_ptr<NSOperation> operationFinished(NSOperation& operation,
                                                         bool isLastAct) = 0;
};

}  // namespace detail

/// A piece of work for an operation queue; always held by `std::shared_ptr`.
///
/// A subclass overrides `main`. If its work outlasts `start`, it overrides `start`, `isExecuting`,
/// `isFinished` and `isAsynchronous` instead, and calls `announce` for each change of these once
/// the new state is decided and stored in one step. Observable keys: "ready", "executing",
/// "finished", "cancelled" (1 or 0), and those of subclasses; observers are called after the
/// change, with the values before and after. Where a change of one key affects others, the
/// observers of these are called only if their value changed too, except for keys that a subclass
/// announces. Any thread, overrides included.
class NSOperation : public KeyValueObserving<std::int64_t>,
                    public std::enable_shared_from_this<NSOperation> {
 public:
  NSOperation();
  ~NSOperation() override;

  /// True when it may start: every dependency has finished, or it is cancelled and no longer waits
  /// for them.
  [[nodiscard]] virtual bool isReady() const;
  [[nodiscard]] virtual bool isExecuting() const;
  [[nodiscard]] virtual bool isFinished() const;
  [[nodiscard]] virtual bool isAsynchronous() const { return false; }
  [[nodiscard]] bool isCancelled() const { return (flags_.load() & kCancelled) != 0; }

  /// Runs `main` unless the operation is cancelled, and finishes. A second call does nothing. The
  /// queue calls it on its threads.
  ///
  /// An override should return right after calling this one: later work may run on the same thread
  /// and only starts once it has returned.
  virtual void start();

  /// The work; empty here.
  virtual void main() {}

  /// Marks it as cancelled. It stays in its queue, which still starts it, and it finishes.
  virtual void cancel();

  /// Makes this operation wait for another one. Call it before adding this one to a queue.
  ///
  /// The other operation is held but not started: add it to a queue, or start it. If it never
  /// finishes, this one never starts and stays in its queue until it is cancelled, even after the
  /// queue object is destroyed: the owner of this one could still start the other, so the queue
  /// cannot know that the wait is in vain.
  void addDependency(const std::shared_ptr<NSOperation>& operation);

  /// The operations it waits for; released when it finishes.
  [[nodiscard]] std::vector<std::shared_ptr<NSOperation>> dependencies() const;

  /// Decides which ready operation a queue starts first; those of equal priority start in the order
  /// in which they became ready. Urgent operations may pass less urgent ones without limit.
  enum class QueuePriority : std::int8_t {
    veryLow = -8,
    low = -4,
    normal = 0,
    high = 4,
    veryHigh = 8,
  };

  /// Initially normal; set it before adding the operation to a queue.
  [[nodiscard]] QueuePriority queuePriority() const noexcept { return queuePriority_; }
  void setQueuePriority(QueuePriority priority) noexcept { queuePriority_ = priority; }

  /// Runs on the thread pool once the operation has finished; set it before adding it to a queue.
  void setCompletionBlock(std::function<void()> block);

  /// Blocks until it has finished. Inside its own work it would wait for itself and stops the
  /// program.
  void waitUntilFinished() const;

  [[nodiscard]] std::string name() const;
  void setName(std::string name);

  /// The keys whose changes also change the property `key`.
  [[nodiscard]] virtual std::set<std::string> keyPathsForValuesAffectingValue(
      std::string_view key) const;

 protected:
  /// The value of a key at one moment; empty for an unknown key.
  using Values = std::function<std::optional<std::int64_t>(std::string_view key)>;

  /// Tells the observers of a key, and of all keys that it affects, about a change; then dependants
  /// and the queue check the operation again. Call it once for each change, without a lock.
  void announce(std::string_view key, const Values& before, const Values& after);

  /// The two halves of `announce`: the first tells observers, the second tells those that wait for
  /// the end of the operation. A second call of `announceEnd` does nothing.
  void announceToObservers(std::string_view key, const Values& before, const Values& after);
  void announceEnd(bool isLastAct = false);

  /// Whether it may be started now: ready, and not executing.
  [[nodiscard]] virtual bool mayStart() const { return isReady() && !isExecuting(); }

  /// The last statement of `start`: runs the job on the thread pool, as urgently as the job that
  /// called `start`; if that is a pool queue's job, right after it on the same thread.
  void postFromStart(Job job) const;

  std::optional<std::int64_t> valueForKey(std::string_view key) const override;

 private:
  friend class NSOperationQueue;

  // The outcome of entering a queue.
  enum class Entered : std::uint8_t { yes, hasFinished, again };

  // Records that a pool job starts this operation and then ends.
  class Starting {
   public:
    explicit Starting(const NSOperation* operation) noexcept
        : outer_(std::exchange(started_, operation)) {}
    ~Starting() { started_ = outer_; }
    Starting(const Starting&) = delete;
    Starting& operator=(const Starting&) = delete;

    static bool isLastAct(const NSOperation* operation) noexcept { return started_ == operation; }

   private:
    static inline constinit thread_local const NSOperation* started_ = nullptr;
    const NSOperation* const outer_;
  };

  // The state in one word. An asynchronous operation keeps its own state beside it and uses only
  // whether it was started and cancelled.
  static constexpr std::uint32_t kExecuting = 1;
  static constexpr std::uint32_t kFinished = 2;
  static constexpr std::uint32_t kCancelled = 4;

  std::optional<std::int64_t> valueIn(std::uint32_t state, std::size_t unfinishedDependencies,
                                      std::string_view key) const;
  void announceToObservers(std::string_view key, std::uint32_t before, std::uint32_t after,
                           std::size_t unfinishedDependencies = 0);
  void lookAgain();
  void dependencyFinished();
  /// Enters the queue, once in the operation's lifetime.
  Entered enter(std::shared_ptr<detail::OperationListener> queue);
  std::shared_ptr<detail::OperationListener> queue() const;

  std::atomic<std::uint32_t> flags_{0};
  std::atomic<std::uint32_t> hasFinished_{0};
  std::atomic<QueuePriority> queuePriority_{QueuePriority::normal};
  detail::OperationEntry entry_;
  mutable FutexLock mutex_;
  bool wasQueued_ OMBRIX_GUARDED_BY(mutex_) = false;
  std::atomic<std::size_t> unfinishedDependencies_{0};  // changed under the lock
  std::vector<std::shared_ptr<NSOperation>> dependencies_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<std::weak_ptr<NSOperation>> dependants_ OMBRIX_GUARDED_BY(mutex_);
  std::shared_ptr<detail::OperationListener> queue_ OMBRIX_GUARDED_BY(mutex_);
  std::function<void()> completionBlock_ OMBRIX_GUARDED_BY(mutex_);
  std::string name_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::platform

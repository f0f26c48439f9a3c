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
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Concurrency/InsideScope.hpp"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"

namespace ombrix::platform {

class NSOperation;

namespace detail {

struct OperationSegment;

/// What the queue that an operation is in keeps about it; guarded by the queue.
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

/// Who is told what an operation in a queue does: the queue. No lock is held.
class OperationListener {
 public:
  virtual ~OperationListener() = default;

  /// It may have become ready.
  virtual void operationChanged(NSOperation& operation) = 0;

  /// Once.
  ///
  /// @param isLastAct Whether the pool's job that calls this ends right after it.
  /// @return The operation, if the queue still held it.
  virtual std::shared_ptr<NSOperation> operationFinished(NSOperation& operation,
                                                         bool isLastAct) = 0;
};

}  // namespace detail

/// A piece of work for an operation queue; always held by `std::shared_ptr`.
///
/// A subclass overrides `main`, or, when it finishes later than `start` returns, `start`,
/// `isExecuting`, `isFinished` and `isAsynchronous`, and announces each change of these with
/// `announce`, once it has decided and stored it in one step. Observable keys: "ready",
/// "executing", "finished", "cancelled" (1 or 0), and what subclasses add; the calls for one change
/// come after it, with the values before and after. Where a change of one key affects others,
/// observers of these are told only if their value changed too, except for keys that a subclass
/// announces. All operations may be called from any thread; overrides too.
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
  [[nodiscard]] bool isCancelled() const { return (flags_.load() & kCancelled) != 0; }

  /// Runs `main` unless it is cancelled, and finishes. Does nothing the second time. Called by the
  /// queue, on its threads.
  ///
  /// An override should end once it has called this: what follows may go on on the same thread, and
  /// then only begins after it.
  virtual void start();

  /// The work; empty here.
  virtual void main() {}

  /// Marks it as cancelled, which never takes it out of its queue: it is started, and finishes.
  virtual void cancel();

  /// Makes this operation wait for another one. Before it is put on a queue.
  ///
  /// The other one is held, but nothing starts it: put it on a queue, or start it. If it never
  /// finishes, this one never starts and stays in its queue, also when the queue object has gone,
  /// until it is cancelled; whoever holds this one could still start the other, so nobody can know
  /// that the wait is in vain.
  void addDependency(const std::shared_ptr<NSOperation>& operation);

  /// The operations it waits for; let go when it finishes.
  [[nodiscard]] std::vector<std::shared_ptr<NSOperation>> dependencies() const;

  /// What a queue starts first of all that is ready; equal ones start in the order in which they
  /// became so. What is more urgent passes what is less without an end.
  enum class QueuePriority : std::int8_t {
    veryLow = -8,
    low = -4,
    normal = 0,
    high = 4,
    veryHigh = 8,
  };

  /// Normal at first; set before it is put on a queue.
  [[nodiscard]] QueuePriority queuePriority() const noexcept { return queuePriority_; }
  void setQueuePriority(QueuePriority priority) noexcept { queuePriority_ = priority; }

  /// Runs on the thread pool once it has finished; set before it is put on a queue.
  void setCompletionBlock(std::function<void()> block);

  /// Blocks until it has finished. Inside its own work it would wait for itself: it stops the
  /// program.
  void waitUntilFinished() const;

  [[nodiscard]] std::string name() const;
  void setName(std::string name);

  /// The keys whose changes change the property `key` as well.
  [[nodiscard]] virtual std::set<std::string> keyPathsForValuesAffectingValue(
      std::string_view key) const;

 protected:
  /// The value of a key at one moment; nothing for a key that is unknown.
  using Values = std::function<std::optional<std::int64_t>(std::string_view key)>;

  /// Tells the observers of a key, and of all keys that it affects, of a change that was made; then
  /// dependants and the queue look at the operation again. Once for each change, with no lock held.
  void announce(std::string_view key, const Values& before, const Values& after);

  /// The two halves of it, for subclasses that know what a change means: observers are told, and
  /// what waits for the end of the operation. The second half does nothing the second time.
  void announceToObservers(std::string_view key, const Values& before, const Values& after);
  void announceEnd(bool isLastAct = false);

  /// Whether it may be started now: ready, and not executing.
  [[nodiscard]] virtual bool mayStart() const { return isReady() && !isExecuting(); }

  /// The last act of `start`: runs the job on the thread pool, as urgently as the job that called
  /// `start`; right after that one, on the same thread, if it was one of a queue in the pool.
  void postFromStart(Job job) const;

  std::optional<std::int64_t> valueForKey(std::string_view key) const override;

 private:
  friend class NSOperationQueue;

  // Whether it entered the queue.
  enum class Entered : std::uint8_t { yes, hasFinished, again };

  // Says that a job of the pool starts this operation and then ends.
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

  // The one word of the state. An operation that is asynchronous keeps its own beside it, and of
  // this one only whether it was started and cancelled.
  static constexpr std::uint32_t kExecuting = 1;
  static constexpr std::uint32_t kFinished = 2;
  static constexpr std::uint32_t kCancelled = 4;

  std::optional<std::int64_t> valueIn(std::uint32_t state, std::size_t unfinishedDependencies,
                                      std::string_view key) const;
  void announceToObservers(std::string_view key, std::uint32_t before, std::uint32_t after,
                           std::size_t unfinishedDependencies = 0);
  void lookAgain();
  void dependencyFinished();
  /// Enters the queue, once in a lifetime.
  Entered enter(std::shared_ptr<detail::OperationListener> queue);
  std::shared_ptr<detail::OperationListener> queue() const;

  std::atomic<std::uint32_t> flags_{0};
  std::atomic<std::uint32_t> hasFinished_{0};
  std::atomic<QueuePriority> queuePriority_{QueuePriority::normal};
  detail::OperationEntry entry_;
  mutable FutexLock mutex_;  // guards what follows
  bool wasQueued_ = false;
  std::atomic<std::size_t> unfinishedDependencies_{0};  // changed under the lock
  std::vector<std::shared_ptr<NSOperation>> dependencies_;
  std::vector<std::weak_ptr<NSOperation>> dependants_;
  std::shared_ptr<detail::OperationListener> queue_;
  std::function<void()> completionBlock_;
  std::string name_;
};

}  // namespace ombrix::platform

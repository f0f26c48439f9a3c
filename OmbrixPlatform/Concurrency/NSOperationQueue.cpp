#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"

#include <array>
#include <atomic>
#include <list>
#include <utility>

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Concurrency/Detail/Turn.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {

// The operations between two barriers, and the barrier that follows them. Only a queue's first
// segment runs.
struct detail::OperationSegment {
  // Those that may start, of one rank.
  struct Ready {
    NSOperation* first = nullptr;
    NSOperation* last = nullptr;
  };

  [[nodiscard]] NSOperation* firstReady() const {
    for (const Ready& each : ready) {
      if (each.first) return each.first;
    }
    return nullptr;
  }

  std::size_t unfinished = 0;
  std::array<Ready, 5> ready;  // by rank
  std::function<void()> barrier;
  bool hasBarrier = false;
  bool barrierRuns = false;
};

// Starts an operation. If the executor drops the job, the operation is cancelled and finishes.
class NSOperationQueue::StartJob {
 public:
  /// @param isWholeJob Whether the pool job does nothing else; a queue that runs it may also say
  ///   so.
  StartJob(std::shared_ptr<NSOperation> operation, bool isWholeJob)
      : operation_(std::move(operation)), isWholeJob_(isWholeJob) {}
  StartJob(StartJob&&) noexcept = default;
  StartJob& operator=(StartJob&&) = delete;
  ~StartJob() {
    if (!operation_) return;
    ThreadPool::shared().post([operation = std::move(operation_)] {
      operation->cancel();
      operation->start();
    });
  }

  void operator()() {
    const auto operation = std::move(operation_);
    const bool isWholeJob = isWholeJob_ || detail::WholeTurn::isCurrent();
    const NSOperation::Starting starting(isWholeJob ? operation.get() : nullptr);
    operation->start();
  }

 private:
  std::shared_ptr<NSOperation> operation_;
  bool isWholeJob_;
};

// Shared by the queue object and its operations, so that these finish without the queue object.
class NSOperationQueue::State final : public detail::OperationListener,
                                      public std::enable_shared_from_this<State> {
 public:
  void setQueue(std::weak_ptr<NSOperationQueue> queue) { queue_ = std::move(queue); }

  void add(std::shared_ptr<NSOperation> operation) {
    switch (operation->enter(shared_from_this())) {
      case NSOperation::Entered::hasFinished:
        fatalError("a finished operation was added to a queue");
      case NSOperation::Entered::again:
        fatalError("an operation was added to a queue twice");
      case NSOperation::Entered::yes:
        break;
    }
    NSOperation& added = *operation;
    const bool isReady = added.mayStart();
    bool hasFinished = false;
    bool isFirst = false;
    Startable next;
    announce([&] {
      const LockGuard lock(mutex_);
      auto& entry = added.entry_;
      entry.operation = operation;
      entry.segment = &segments_.back();
      ++entry.segment->unfinished;
      entry.previous = std::exchange(last_, &added);
      (entry.previous ? entry.previous->entry_.next : first_) = &added;
      isFirst = count_++ == 0;
      hasFinished = added.hasFinished_.load() != 0;
      if (!isReady || hasFinished) return;
      makeReady(added);
      next = takeStartable();
    });
    if (isFirst) tellOfEmptiness();
    start(std::move(next));
    // Before it was in the list, another thread may have finished it or made it ready.
    if (hasFinished) {
      if (holds(added)) operationFinished(added, false);
    } else if (!isReady) {
      operationChanged(added);
    }
  }

  void operationChanged(NSOperation& operation) override {
    if (!operation.mayStart()) return;
    Startable next;
    {
      const LockGuard lock(mutex_);
      const auto& entry = operation.entry_;
      if (!entry.operation || entry.isQueued) return;
      makeReady(operation);
      next = takeStartable();
    }
    start(std::move(next));
  }

  std::shared_ptr<NSOperation> operationFinished(NSOperation& operation, bool isLastAct) override {
    std::shared_ptr<NSOperation> removed;
    bool wasLast = false;
    Startable next;
    announce([&] {
      const LockGuard lock(mutex_);
      auto& entry = operation.entry_;
      removed = std::move(entry.operation);
      if (!removed) return;
      (entry.previous ? entry.previous->entry_.next : first_) = entry.next;
      (entry.next ? entry.next->entry_.previous : last_) = entry.previous;
      wasLast = --count_ == 0;
      --entry.segment->unfinished;
      if (entry.isStarted) {
        --running_;
      } else if (entry.isQueued) {
        unlinkReady(operation);
      }
      notifyIfEmpty();
      next = takeStartable();
    });
    if (wasLast) tellOfEmptiness();
    start(std::move(next), isLastAct);
    return removed;
  }

  /// Called before the first observer of the queue object is added.
  void willBeObserved() { isObserved_ = true; }

  /// The queue object was destroyed. Operations that a width of 0 holds back could never start:
  /// they are cancelled and finish.
  void queueIsGone() {
    {
      const LockGuard lock(mutex_);
      if (width_ != 0) return;
    }
    for (const auto& operation : operations()) operation->cancel();
    {
      const LockGuard lock(mutex_);
      width_ = kDefaultMaxConcurrentOperationCount;
    }
    pump();
  }

  void addBarrier(std::function<void()> block) {
    {
      const LockGuard lock(mutex_);
      segments_.back().barrier = std::move(block);
      segments_.back().hasBarrier = true;
      segments_.emplace_back();
    }
    pump();
  }

  std::vector<std::shared_ptr<NSOperation>> operations() const {
    const LockGuard lock(mutex_);
    std::vector<std::shared_ptr<NSOperation>> operations;
    operations.reserve(count_);
    for (const auto* each = first_; each; each = each->entry_.next) {
      operations.push_back(each->entry_.operation);
    }
    return operations;
  }

  void waitUntilEmpty() {
    const LockGuard lock(mutex_);
    if (isEmpty()) return;
    if (isCalledFromInside()) {
      fatalError("a queue's operation or barrier waits for that queue to be empty");
    }
    detail::checkMayBlock();
    const ThreadPool::BlockingScope blocking;
    const auto hasEmptied = [this]() OMBRIX_REQUIRES(mutex_) { return isEmpty(); };
    ++waiters_;
    bool isOver = false;
    {
      const UnlockGuard unlocked(mutex_);
      isOver = detail::waitUntilWatched([&](auto interval) {
        const LockGuard waiting(mutex_);
        return emptied_.wait_for(mutex_, interval, hasEmptied);
      });
    }
    if (!isOver) emptied_.wait(mutex_, hasEmptied);
    --waiters_;
  }

  void pump() {
    Startable next;
    {
      const LockGuard lock(mutex_);
      next = takeStartable();
    }
    start(std::move(next));
  }

  mutable FutexLock mutex_;
  std::string name_ OMBRIX_GUARDED_BY(mutex_);
  std::ptrdiff_t width_ OMBRIX_GUARDED_BY(mutex_) = kDefaultMaxConcurrentOperationCount;
  // The queue is never destroyed, so the pointer owns nothing and copying it counts nothing.
  std::shared_ptr<DispatchQueue> target_ OMBRIX_GUARDED_BY(mutex_){std::shared_ptr<void>(),
                                                                   &DispatchQueue::global()};
  std::size_t count_ OMBRIX_GUARDED_BY(mutex_) = 0;

 private:
  // The next operation or barrier to start, taken off the queue; at most one of the two is set, and
  // only with a target.
  struct Startable {
    std::shared_ptr<DispatchQueue> target;
    std::shared_ptr<NSOperation> operation;
    std::function<void()> barrier;
    bool isFollowed = false;  // more operations may start after it
  };

  bool mayStartOperation(const detail::OperationSegment& segment) const OMBRIX_REQUIRES(mutex_) {
    return segment.firstReady() && (width_ < 0 || running_ < static_cast<std::size_t>(width_));
  }

  static std::size_t rankOf(NSOperation::QueuePriority priority) {
    return static_cast<std::size_t>(8 - static_cast<int>(priority)) / 4;
  }

  void makeReady(NSOperation& operation) OMBRIX_REQUIRES(mutex_) {
    auto& entry = operation.entry_;
    entry.isQueued = true;
    entry.rank = rankOf(operation.queuePriority());
    auto& ready = entry.segment->ready[entry.rank];
    entry.readyBefore = std::exchange(ready.last, &operation);
    (entry.readyBefore ? entry.readyBefore->entry_.readyAfter : ready.first) = &operation;
  }

  void unlinkReady(NSOperation& operation) OMBRIX_REQUIRES(mutex_) {
    const auto& entry = operation.entry_;
    auto& ready = entry.segment->ready[entry.rank];
    (entry.readyBefore ? entry.readyBefore->entry_.readyAfter : ready.first) = entry.readyAfter;
    (entry.readyAfter ? entry.readyAfter->entry_.readyBefore : ready.last) = entry.readyBefore;
  }

  /// Called after each change that may allow a start.
  Startable takeStartable() OMBRIX_REQUIRES(mutex_) {
    Startable next;
    auto& segment = segments_.front();
    if (mayStartOperation(segment)) {
      auto& operation = *segment.firstReady();
      unlinkReady(operation);
      operation.entry_.isStarted = true;
      ++running_;
      next.operation = operation.entry_.operation;
      next.target = target_;
      next.isFollowed = mayStartOperation(segment);
    } else if (segment.unfinished == 0 && segment.hasBarrier && !segment.barrierRuns) {
      segment.barrierRuns = true;
      next.barrier = std::move(segment.barrier);
      next.target = target_;
    }
    return next;
  }

  /// Called without the lock: starts it, and all that may start after it.
  void start(Startable next, bool isLastAct = false) {
    for (;;) {
      if (next.target && next.operation) {
        // One that goes on elsewhere returns at once.
        const bool isNext = std::exchange(isLastAct, false) ||
                            (detail::PoolJob::isEnding() && next.operation->isAsynchronous());
        StartJob job(std::move(next.operation), next.target->isGlobal());
        if (isNext) {
          next.target->asyncNext(std::move(job));
        } else {
          next.target->async(std::move(job));
        }
      } else if (next.target) {
        const auto job = std::make_shared<BarrierJob>(shared_from_this(), std::move(next.barrier));
        next.target->async(OwedJob(job));
      }
      if (!next.isFollowed) return;
      next = Startable();
      const LockGuard lock(mutex_);
      next = takeStartable();
    }
  }

  // Runs a barrier's block. If the executor drops the job, the queue goes on without the block.
  struct BarrierJob {
    void run() {
      {
        const detail::InsideScope scope(queue.get());
        block();
      }
      queue->barrierFinished();
    }
    void drop() {
      ThreadPool::shared().post([queue = queue] { queue->barrierFinished(); });
    }

    const std::shared_ptr<State> queue;
    const std::function<void()> block;
  };

  void barrierFinished() {
    std::list<detail::OperationSegment> finished;  // releases the block's captures without the lock
    {
      const LockGuard lock(mutex_);
      finished.splice(finished.end(), segments_, segments_.begin());
      notifyIfEmpty();
    }
    pump();
  }

  bool isCalledFromInside() const OMBRIX_REQUIRES(mutex_) {
    using detail::InsideScope;
    if (!InsideScope::isInsideAny()) return false;
    if (InsideScope::isInside(this)) return true;
    for (const auto* each = first_; each; each = each->entry_.next) {
      if (InsideScope::isInside(each)) return true;
    }
    return false;
  }

  bool holds(const NSOperation& operation) const {
    const LockGuard lock(mutex_);
    return operation.entry_.operation != nullptr;
  }

  bool isEmpty() const OMBRIX_REQUIRES(mutex_) { return count_ == 0 && segments_.size() == 1; }
  void notifyIfEmpty() OMBRIX_REQUIRES(mutex_) {
    if (waiters_ > 0 && isEmpty()) emptied_.notify_all();
  }

  void tellOfEmptiness() const {
    if (const auto queue = queue_.lock()) queue->emptinessDidChange.send();
  }

  template <class Change>
  void announce(Change change) {
    const auto queue = isObserved_ ? queue_.lock() : nullptr;
    if (!queue) return change();
    detail::PoolJob::goesOn();
    queue->willChangeValueForKey("operations");
    queue->willChangeValueForKey("operationCount");
    change();
    queue->didChangeValueForKey("operationCount");
    queue->didChangeValueForKey("operations");
  }

  std::weak_ptr<NSOperationQueue> queue_;
  std::atomic<bool> isObserved_{false};  // the queue object is, or was
  AnyCondition emptied_;
  std::size_t waiters_ OMBRIX_GUARDED_BY(mutex_) = 0;
  NSOperation* first_ OMBRIX_GUARDED_BY(mutex_) = nullptr;
  NSOperation* last_ OMBRIX_GUARDED_BY(mutex_) = nullptr;
  std::list<detail::OperationSegment> segments_ OMBRIX_GUARDED_BY(mutex_){1};
  std::size_t running_ OMBRIX_GUARDED_BY(mutex_) = 0;
};

std::shared_ptr<NSOperationQueue> NSOperationQueue::make(std::string name) {
  auto queue = std::make_shared<NSOperationQueue>(Passkey{}, std::move(name));
  queue->state_->setQueue(queue);
  return queue;
}

NSOperationQueue::NSOperationQueue(Passkey, std::string name) : state_(std::make_shared<State>()) {
  state_->name_ = std::move(name);
}

NSOperationQueue::~NSOperationQueue() { state_->queueIsGone(); }

std::string NSOperationQueue::name() const {
  const LockGuard lock(state_->mutex_);
  return state_->name_;
}
void NSOperationQueue::setName(std::string name) {
  const LockGuard lock(state_->mutex_);
  state_->name_.swap(name);
}

std::ptrdiff_t NSOperationQueue::maxConcurrentOperationCount() const {
  const LockGuard lock(state_->mutex_);
  return state_->width_;
}
void NSOperationQueue::setMaxConcurrentOperationCount(std::ptrdiff_t count) {
  {
    const LockGuard lock(state_->mutex_);
    state_->width_ = count;
  }
  state_->pump();
}

std::shared_ptr<DispatchQueue> NSOperationQueue::underlyingQueue() const {
  const LockGuard lock(state_->mutex_);
  return state_->target_;
}
void NSOperationQueue::setUnderlyingQueue(std::shared_ptr<DispatchQueue> queue) {
  const LockGuard lock(state_->mutex_);
  state_->target_.swap(queue);
}

void NSOperationQueue::addOperation(std::shared_ptr<NSOperation> operation) {
  state_->add(std::move(operation));
}

void NSOperationQueue::addOperation(std::function<void()> block) {
  class BlockOperation final : public NSOperation {
   public:
    explicit BlockOperation(std::function<void()> work) : work_(std::move(work)) {}
    // Releases the block's captures before the end is announced, and before the next operation.
    void main() override { std::exchange(work_, nullptr)(); }

   private:
    std::function<void()> work_;
  };
  addOperation(std::make_shared<BlockOperation>(std::move(block)));
}

void NSOperationQueue::addBarrierBlock(std::function<void()> block) {
  state_->addBarrier(std::move(block));
}

std::vector<std::shared_ptr<NSOperation>> NSOperationQueue::operations() const {
  return state_->operations();
}

std::size_t NSOperationQueue::operationCount() const {
  const LockGuard lock(state_->mutex_);
  return state_->count_;
}

bool NSOperationQueue::contains(const NSOperation& operation) const {
  return operation.queue() == state_;
}

void NSOperationQueue::cancelAllOperations() {
  for (const auto& operation : operations()) operation->cancel();
}

void NSOperationQueue::waitUntilAllOperationsAreFinished() { state_->waitUntilEmpty(); }

void NSOperationQueue::willObserve(std::string_view) { state_->willBeObserved(); }

std::optional<std::int64_t> NSOperationQueue::valueForKey(std::string_view key) const {
  if (key != "operations" && key != "operationCount") return std::nullopt;
  return static_cast<std::int64_t>(operationCount());
}

}  // namespace ombrix::platform

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"

#include <array>
#include <deque>
#include <semaphore>
#include <vector>

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Concurrency/Detail/Turn.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/InsideScope.hpp"
#include "OmbrixPlatform/Concurrency/MainLoop.hpp"
#include "OmbrixPlatform/Concurrency/TaskContext.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

// A serial queue gives its thread back after this many jobs, so that other queues get their turn;
// sooner, when more urgent jobs wait for a thread.
constexpr unsigned kJobsPerTurn = 64;

}  // namespace

DispatchPriority dispatchPriority(QualityOfService qualityOfService) noexcept {
  switch (qualityOfService) {
    case QualityOfService::background:
      return DispatchPriority::background;
    case QualityOfService::utility:
      return DispatchPriority::low;
    case QualityOfService::unspecified:
      return DispatchPriority::normal;
    case QualityOfService::userInitiated:
    case QualityOfService::userInteractive:
      return DispatchPriority::high;
  }
  return DispatchPriority::normal;
}

// Shared with running jobs, so that a queue may be dropped while it works.
struct DispatchQueue::State : std::enable_shared_from_this<State> {
  struct Entry {
    Job job;
    bool isBarrier;
  };

  State(Kind queueKind, DispatchPriority lane) : kind(queueKind), priority(lane) {}

  void enqueue(Job&& job, bool isBarrier) {
    if (isGlobal) return ThreadPool::shared().post(std::move(job), priority, this);
    if (kind == Kind::concurrent) {
      if (begin(job, isBarrier)) submit();
      return;
    }
    bool isSubmitted = false;
    {
      const LockGuard lock(mutex);
      waiting.push_back({std::move(job), false});
      isSubmitted = std::exchange(isDraining, true);
    }
    if (isSubmitted) return detail::retryAfterShortage();
    submitDrain();
  }

  void submitDrain() {
    OwedJob drain(shared_from_this());
    if (kind == Kind::main) {
      services().mainExecutor.shared()->post(std::move(drain));
    } else {
      ThreadPool::shared().post(std::move(drain), priority);
    }
  }

  /// The host's main executor will not run the waiting jobs: drops them; later jobs are accepted.
  void drop() {
    std::deque<Entry> dropped;
    const LockGuard lock(mutex);
    dropped.swap(waiting);
    isDraining = false;
  }

  void run() {
    const detail::InsideScope scope(this);
    const detail::Turn turn(priority);
    for (unsigned count = 0; count < kJobsPerTurn; ++count) {
      if (count > 0 && kind == Kind::serial && turn.isOver()) break;
      Job job;
      {
        const LockGuard lock(mutex);
        if (waiting.empty()) {
          isDraining = false;
          return;
        }
        job = std::move(waiting.front().job);
        waiting.pop_front();
      }
      detail::PoolJob::goesOn();
      callOut("a job", job);
    }
    submitDrain();
  }

  /// Concurrent queues: takes the job; true when it may run now, and counts it as running.
  bool begin(Job& job, bool isBarrier) {
    const LockGuard lock(mutex);
    const bool mustWait = barrierRuns || !waiting.empty() || (isBarrier && running > 0);
    if (mustWait) {
      waiting.push_back({std::move(job), isBarrier});
      return false;
    }
    runnable.push_back(std::move(job));
    ++running;
    barrierRuns = isBarrier;
    return true;
  }

  // The queue keeps the jobs: passing them to the pool would need a closure on the heap.
  void submit() {
    ThreadPool::shared().post([self = shared_from_this()] { self->runOne(); }, priority);
  }
  void submitNext() {
    ThreadPool::shared().postNext([self = shared_from_this()] { self->runOne(); }, priority);
  }

  void runOne() {
    {
      Job job;
      {
        const LockGuard lock(mutex);
        job = std::move(runnable.front());
        runnable.pop_front();
      }
      const detail::InsideScope scope(this);
      const detail::WholeTurn whole;
      callOut("a job", job);
      job = nullptr;
    }
    finishedOne();
  }

  void finishedOne() {
    std::size_t count = 0;
    {
      const LockGuard lock(mutex);
      --running;
      barrierRuns = false;
      while (!waiting.empty() && !barrierRuns) {
        if (waiting.front().isBarrier) {
          if (running > 0) break;
          barrierRuns = true;
        }
        ++running;
        ++count;
        runnable.push_back(std::move(waiting.front().job));
        waiting.pop_front();
      }
    }
    for (; count > 0; --count) submit();
  }

  /// Runs the job on the calling thread when a serial queue is idle, or when nothing holds it up in
  /// a concurrent one; false when it cannot.
  bool runInline(const std::function<void()>& job) {
    if (kind == Kind::main) return false;
    {
      const LockGuard lock(mutex);
      if (kind == Kind::concurrent) {
        if (barrierRuns || !waiting.empty()) return false;
        ++running;
      } else if (std::exchange(isDraining, true)) {
        return false;
      }
    }
    {
      const detail::InsideScope scope(this);
      job();
    }
    if (kind == Kind::concurrent) {
      finishedOne();
      return true;
    }
    {
      const LockGuard lock(mutex);
      if (waiting.empty()) {
        isDraining = false;
        return true;
      }
    }
    submitDrain();
    return true;
  }

  const Kind kind;
  const DispatchPriority priority;
  bool isGlobal = false;  // has no barriers, so that its jobs never wait
  FutexLock mutex;
  std::deque<Entry> waiting OMBRIX_GUARDED_BY(mutex);
  // Serial and main: a thread runs jobs, or is about to.
  bool isDraining OMBRIX_GUARDED_BY(mutex) = false;
  bool barrierRuns OMBRIX_GUARDED_BY(mutex) = false;  // concurrent
  // Concurrent: passed to the pool and not finished.
  std::size_t running OMBRIX_GUARDED_BY(mutex) = 0;
  std::deque<Job> runnable OMBRIX_GUARDED_BY(mutex);  // of these, the jobs that have not begun
};

DispatchQueue::DispatchQueue(Passkey, Kind kind, std::string label,
                             QualityOfService qualityOfService, DispatchPriority priority)
    : label_(std::move(label)),
      qualityOfService_(qualityOfService),
      state_(std::make_shared<State>(kind, priority)) {}

DispatchQueue::~DispatchQueue() = default;

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label,
                                                     QualityOfService qualityOfService) {
  return std::make_shared<DispatchQueue>(Passkey{}, Kind::serial, std::move(label),
                                         qualityOfService, dispatchPriority(qualityOfService));
}

std::shared_ptr<DispatchQueue> DispatchQueue::concurrent(std::string label,
                                                         QualityOfService qualityOfService) {
  return std::make_shared<DispatchQueue>(Passkey{}, Kind::concurrent, std::move(label),
                                         qualityOfService, dispatchPriority(qualityOfService));
}

DispatchQueue& DispatchQueue::global(DispatchPriority priority) {
  using Queues = std::array<std::shared_ptr<DispatchQueue>, 4>;
  auto make = [](std::string label, QualityOfService qualityOfService) {
    auto queue =
        std::make_shared<DispatchQueue>(Passkey{}, Kind::concurrent, std::move(label),
                                        qualityOfService, dispatchPriority(qualityOfService));
    queue->state_->isGlobal = true;
    return queue;
  };
  // Leaked: jobs may still run while the process ends.
  static const Queues& queues =
      *new Queues{make("global.high", QualityOfService::userInitiated),
                  make("global.default", QualityOfService::unspecified),
                  make("global.low", QualityOfService::utility),
                  make("global.background", QualityOfService::background)};
  switch (priority) {
    case DispatchPriority::high:
      return *queues[0];
    case DispatchPriority::normal:
      return *queues[1];
    case DispatchPriority::low:
      return *queues[2];
    case DispatchPriority::background:
      return *queues[3];
  }
  fatalError("unknown dispatch priority");
}

DispatchQueue& DispatchQueue::main() {
  static const auto& queue = *new auto(std::make_shared<DispatchQueue>(
      Passkey{}, Kind::main, "main", QualityOfService::userInteractive, DispatchPriority::high));
  return *queue;
}

void DispatchQueue::async(Job job) { state_->enqueue(std::move(job), false); }

void DispatchQueue::asyncNext(Job job) {
  auto& pool = ThreadPool::shared();
  if (isGlobal() && !pool.hasWaiting()) {
    pool.postNext(std::move(job), state_->priority, state_.get());
  } else if (state_->kind == Kind::concurrent && !isGlobal() && detail::PoolJob::isEnding()) {
    if (state_->begin(job, false)) state_->submitNext();
  } else {
    async(std::move(job));
  }
}

bool DispatchQueue::isGlobal() const noexcept { return state_->isGlobal; }

void DispatchQueue::asyncBarrier(Job job) { state_->enqueue(std::move(job), true); }

void DispatchQueue::asyncAfter(std::chrono::steady_clock::time_point deadline, Job job) {
  afterUncancellably(deadline, [self = shared_from_this(), job = std::move(job)]() mutable {
    self->async(std::move(job));
  });
}

void DispatchQueue::asyncAfter(std::chrono::duration<double> delay, Job job) {
  asyncAfter(deadlineAfter(delay), std::move(job));
}

bool DispatchQueue::isCurrent() const noexcept {
  return detail::InsideScope::isInside(state_.get());
}

void DispatchQueue::runAndWait(std::function<void()> job) {
  const bool isConcurrent = state_->kind == Kind::concurrent;
  if (isCurrent() && !isConcurrent) {
    fatalError("sync called on the serial queue it runs on: " + label_);
  }
  if (state_->runInline(job)) return;
  // While a barrier waits or runs, no job starts before the job that calls this ends.
  if (isCurrent()) {
    fatalError("sync called on the concurrent queue it runs on, across a barrier: " + label_);
  }
  if (state_->kind == Kind::main) {
    const auto loop = std::dynamic_pointer_cast<MainLoop>(services().mainExecutor.shared());
    if (loop && loop->isMainThread()) {
      fatalError("sync called on the main queue by the thread that pumps it");
    }
  }
  struct Waiting {
    void run() {
      job();
      hasRun = true;
      done.release();
    }
    void drop() { done.release(); }

    const std::function<void()>& job;
    std::binary_semaphore done{0};
    bool hasRun = false;
  };
  Waiting waiting{job};
  async(OwedJob(&waiting));
  {
    const ThreadPool::BlockingScope blocking;
    const auto waitFor = [&](auto interval) { return waiting.done.try_acquire_for(interval); };
    if (!detail::waitUntilWatched(waitFor)) waiting.done.acquire();
  }
  if (!waiting.hasRun) throw CancellationError();
}

}  // namespace ombrix::platform

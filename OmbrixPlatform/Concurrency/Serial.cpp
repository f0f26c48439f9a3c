#include "OmbrixPlatform/Concurrency/Serial.hpp"

#include <deque>
#include <utility>

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Concurrency/Detail/Turn.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform {
namespace {

constexpr unsigned kJobsPerTurn = 64;

}  // namespace

// The word changes from inside to queued, and from queued to idle, only under the mutex; entering
// and leaving an uncontended section never takes the mutex.
struct Serial::State : std::enable_shared_from_this<State> {
  void enqueue(Job job) {
    bool isSubmitted = false;
    {
      const LockGuard lock(mutex);
      waiting.push_back(std::move(job));
      isSubmitted = word.exchange(kQueued, std::memory_order_acq_rel) != kIdle;
    }
    if (isSubmitted) return detail::retryAfterShortage();
    scheduleDrain();
  }

  void scheduleDrain() {
    ThreadPool::shared().post([self = shared_from_this()] { self->drain(); });
  }

  void drain() {
    const detail::Turn turn(DispatchPriority::normal);
    for (unsigned count = 0; count < kJobsPerTurn; ++count) {
      if (count > 0 && turn.isOver()) break;
      Job job;
      std::shared_ptr<State> released;
      {
        const LockGuard lock(mutex);
        if (waiting.empty()) {
          word.store(kIdle, std::memory_order_release);
          released.swap(keptByItself);
          return;
        }
        job = std::move(waiting.front());
        waiting.pop_front();
      }
      const Inside inside(&word);
      callOut("a job of an actor", job);
      job = nullptr;
    }
    scheduleDrain();
  }

  /// The executor was destroyed. A running section still needs the state, so the state owns itself
  /// until the section has ended and a drain finds nothing left.
  void executorIsGone() {
    const LockGuard lock(mutex);
    if (word.load(std::memory_order_acquire) == kIdle) return;
    keptByItself = shared_from_this();
    if (word.exchange(kQueued, std::memory_order_acq_rel) != kIdle) return;
    word.store(kIdle, std::memory_order_release);
    keptByItself = nullptr;
  }

  std::atomic<std::uint32_t> word{kIdle};
  FutexLock mutex;
  std::deque<Job> waiting OMBRIX_GUARDED_BY(mutex);
  std::shared_ptr<State> keptByItself OMBRIX_GUARDED_BY(mutex);
};

namespace {
thread_local const void* innermost = nullptr;
}

Serial::Inside::Inside(const void* identity) noexcept
    : identity_(identity), outer_(static_cast<const Inside*>(innermost)) {
  innermost = this;
}

Serial::Inside::~Inside() { innermost = outer_; }

Serial::Serial(SectionPlace place)
    : state_(std::make_shared<State>()), word_(&state_->word), place_(place) {}

Serial::~Serial() { state_->executorIsGone(); }

void Serial::post(Job job) { state_->enqueue(std::move(job)); }

void Serial::scheduleDrain(State& state) { state.scheduleDrain(); }

bool Serial::isOnMainQueue() noexcept { return DispatchQueue::main().isCurrent(); }

bool Serial::isCurrent() const noexcept {
  for (auto* inside = static_cast<const Inside*>(innermost); inside; inside = inside->outer_) {
    if (inside->identity_ == word_) return true;
  }
  return false;
}

bool Serial::isInsideAny() noexcept { return innermost != nullptr; }

}  // namespace ombrix::platform

#include "OmbrixPlatform/Concurrency/Events.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <cerrno>
#include <exception>
#include <optional>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;
using TimePoint = std::chrono::steady_clock::time_point;

// A timer whose clock lags behind real time (it was set, or is stopped) checks again after this.
constexpr auto kShortestWait = 10ms;
constexpr auto kLongestWait = 1h;

// The one thread for timers and descriptors; leaked, since it may run while the process ends.
class EventLoop {
 public:
  /// Creates it on first use; throws `std::system_error` when the process has no descriptor left.
  static EventLoop& shared() {
    if (auto* const loop = made()) return *loop;
    const LockGuard lock(making_);
    return make();
  }

  /// Runs the job on the events thread as soon as that exists.
  template <class EventJob>
  static void post(EventJob job) {
    if (auto* const loop = made()) {
      asio::post(loop->context, std::move(job));
      if (loop->hasThread_.load(std::memory_order_acquire)) return;
    } else {
      const LockGuard lock(making_);
      early().push_back(std::move(job));
    }
    retry();
    detail::retryAfterShortage();
  }

  /// Creates what the waiting jobs need and could not be created before.
  static void retry() {
    const LockGuard lock(making_);
    if (!made() && early().empty()) return;
    try {
      make().ensureThread();
    } catch (const std::exception&) {  // no descriptor, thread or memory is left
      detail::noteThreadShortage();
    }
  }

  static bool exists() { return made() != nullptr; }

  asio::io_context context;
  std::unordered_set<class TimerState*> timers;  // pending ones; events thread only

 private:
  EventLoop() { const asio::steady_timer opensTheDescriptors(context); }

  static EventLoop* made() { return made_.load(std::memory_order_acquire); }

  static EventLoop& make() OMBRIX_REQUIRES(making_) {
    auto* const before = made();
    auto* const loop = before ? before : new EventLoop;
    for (auto& job : early()) asio::post(loop->context, std::move(job));
    early().clear();
    made_.store(loop, std::memory_order_release);
    return *loop;
  }

  void ensureThread() OMBRIX_REQUIRES(making_) {
    if (hasThread_.load(std::memory_order_relaxed)) return;
    std::thread([this] { context.run(); }).detach();
    hasThread_.store(true, std::memory_order_release);
  }

  static std::vector<Job>& early() OMBRIX_REQUIRES(making_) {
    static auto& jobs = *new std::vector<Job>;
    return jobs;
  }

  static inline Mutex making_;
  static inline std::atomic<EventLoop*> made_{nullptr};
  std::atomic<bool> hasThread_{false};
  asio::io_context::work work_{context};
};

}  // namespace

class EventToken::State : public std::enable_shared_from_this<State> {
 public:
  explicit State(EventHandler handler) : handler_(std::move(handler)) {}
  virtual ~State() = default;

  void cancel() noexcept {
    EventHandler released;
    {
      const LockGuard lock(mutex_);
      isCancelled_ = true;
      if (isRunning_) {
        if (runner_ == std::this_thread::get_id()) return;
        finished_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return !isRunning_; });
      }
      released = std::move(handler_);
    }
    EventLoop::post([self = shared_from_this()] { self->detach(); });
  }

  /// Calls the handler unless cancelled; true when it should be called again.
  bool fire(bool isLast) {
    {
      const LockGuard lock(mutex_);
      if (isCancelled_) return false;
      isRunning_ = true;
      runner_ = std::this_thread::get_id();
    }
    callOut("a timer's or descriptor's handler", handler_);
    // Releases the handler's captures, which may own the token, before this call counts as ended.
    EventHandler released;
    bool isOver = isLast;
    {
      const LockGuard lock(mutex_);
      isOver = isOver || isCancelled_;
      if (isOver) released = std::move(handler_);
    }
    released = nullptr;
    const LockGuard lock(mutex_);
    isRunning_ = false;
    finished_.notify_all();
    return !isOver && !isCancelled_;
  }

  /// Stops waiting; events thread.
  virtual void detach() = 0;

 private:
  Mutex mutex_;
  Condition finished_;
  EventHandler handler_;
  bool isCancelled_ OMBRIX_GUARDED_BY(mutex_) = false;
  bool isRunning_ OMBRIX_GUARDED_BY(mutex_) = false;
  std::thread::id runner_ OMBRIX_GUARDED_BY(mutex_);
};

namespace {

class TimerState final : public EventToken::State {
 public:
  TimerState(TimePoint deadline, EventHandler handler)
      : State(std::move(handler)), clock_(services().clock.shared()), deadline_(deadline) {}

  void start() {
    EventLoop::post([self = self()] { self->arm(TimePoint::duration{0}); });
  }

  void detach() override {
    isDetached_ = true;
    EventLoop::shared().timers.erase(this);
    if (timer_) timer_->cancel();
  }

  void look() { timer_->cancel(); }  // its wait ends as cancelled, which arms it again

 private:
  std::shared_ptr<TimerState> self() {
    return std::static_pointer_cast<TimerState>(shared_from_this());
  }

  void arm(TimePoint::duration shortest) {
    if (isDetached_) return;
    const auto now = clock_->steadyNow();
    if (now >= deadline_) {
      isDetached_ = true;
      EventLoop::shared().timers.erase(this);
      fire(true);
      return;
    }
    if (!timer_) timer_.emplace(EventLoop::shared().context);
    EventLoop::shared().timers.insert(this);
    // Waits for a far deadline in steps, which also keeps the subtraction from overflowing.
    const auto remaining = now > deadline_ - kLongestWait ? deadline_ - now : kLongestWait;
    timer_->expires_after(std::max<TimePoint::duration>(remaining, shortest));
    timer_->async_wait([self = self()](const asio::error_code& error) {
      self->arm(error ? TimePoint::duration{0} : kShortestWait);
    });
  }

  const std::shared_ptr<Clock> clock_;
  const TimePoint deadline_;
  std::optional<asio::steady_timer> timer_;  // set once it waits; the loop may not exist before
  bool isDetached_ = false;
};

class ReadableState final : public EventToken::State {
 public:
  ReadableState(int descriptor, EventHandler handler)
      : State(std::move(handler)), descriptor_(EventLoop::shared().context) {
    struct stat status{};
    if (::fstat(descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
      throw Error("descriptor cannot be watched: it is always ready");
    }
    // A duplicate: the caller may close its descriptor without telling this thread.
    const int own = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (own < 0)
      throw Error("descriptor cannot be watched: " + std::generic_category().message(errno));
    asio::error_code error;
    descriptor_.assign(own, error);
    if (error) {
      ::close(own);
      throw Error("descriptor cannot be watched: " + error.message());
    }
  }

  void start() {
    EventLoop::post([self = self()] { self->wait(); });
  }

  void detach() override {
    asio::error_code ignored;
    descriptor_.close(ignored);
  }

 private:
  std::shared_ptr<ReadableState> self() {
    return std::static_pointer_cast<ReadableState>(shared_from_this());
  }

  void wait() {
    if (!descriptor_.is_open()) return;
    descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                           [self = self()](const asio::error_code& error) {
                             if (error) return;
                             if (self->fire(false)) {
                               self->wait();
                             } else {
                               self->detach();
                             }
                           });
  }

  asio::posix::stream_descriptor descriptor_;
};

}  // namespace

EventToken& EventToken::operator=(EventToken&& other) noexcept {
  if (this != &other) {
    cancel();
    state_ = std::move(other.state_);
  }
  return *this;
}

void EventToken::cancel() noexcept {
  if (const auto state = std::exchange(state_, nullptr)) state->cancel();
}

EventToken after(TimePoint deadline, EventHandler handler) {
  const auto state = std::make_shared<TimerState>(deadline, std::move(handler));
  state->start();
  return EventToken(state);
}

EventToken after(std::chrono::duration<double> delay, EventHandler handler) {
  return after(deadlineAfter(delay), std::move(handler));
}

void afterUncancellably(TimePoint deadline, Job job) {
  std::make_shared<TimerState>(deadline, std::move(job))->start();
}

EventToken whenReadable(int descriptor, EventHandler handler) {
  try {
    EventLoop::shared();
  } catch (const std::system_error& error) {
    throw Error("descriptor cannot be watched: " + error.code().message());
  }
  const auto state = std::make_shared<ReadableState>(descriptor, std::move(handler));
  state->start();
  return EventToken(state);
}

TimePoint deadlineAfter(std::chrono::duration<double> delay) {
  const auto now = services().clock.get().steadyNow();
  const std::chrono::duration<double> longest = TimePoint::max() - now;
  if (!(delay < longest)) return TimePoint::max();
  if (!(delay.count() > 0)) return now;
  return now + std::chrono::duration_cast<TimePoint::duration>(delay);
}

void reconsiderTimers() {
  if (!EventLoop::exists()) return;
  EventLoop::post([] {
    for (auto* timer : EventLoop::shared().timers) timer->look();
  });
}

void detail::retryEventsThread() { EventLoop::retry(); }

}  // namespace ombrix::platform

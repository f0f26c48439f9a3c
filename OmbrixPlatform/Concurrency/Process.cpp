#include "OmbrixPlatform/Concurrency/Process.hpp"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform {
namespace {

constinit std::atomic<unsigned> inside{0};  // number of threads
constinit std::atomic<unsigned> isForking{0};
constinit std::atomic<unsigned> forks{0};
constinit thread_local unsigned depth = 0;

unsigned ownPasses() noexcept { return depth > 0 ? 1 : 0; }

struct Endings {
  ForkSafe<Mutex> mutex;
  std::vector<std::pair<pid_t, void (*)()>> functions OMBRIX_GUARDED_BY(mutex);
};

constinit std::atomic<bool> isExiting{false};

Endings& endings() {
  static Endings& instance = *new Endings;  // outlives exit
  return instance;
}

void runAll() {
  isExiting.store(true);
  while (true) {
    std::pair<pid_t, void (*)()> last;
    {
      const LockGuard lock(endings().mutex);
      if (endings().functions.empty()) return;
      last = endings().functions.back();
      endings().functions.pop_back();
    }
    if (last.first == ::getpid()) last.second();
  }
}

}  // namespace

struct ForkHandler::All {
  static void waitForOthers() noexcept {
    while (isForking.exchange(1) != 0) isForking.wait(1);
    for (unsigned count = 0; (count = inside.load()) > ownPasses();) inside.wait(count);
  }

  static void end() noexcept {
    isForking = 0;
    isForking.notify_all();
  }

  // Unchecked: the child has one thread.
  static void enterChild() OMBRIX_NO_THREAD_SAFETY_ANALYSIS {
    ++forks;
    inside = ownPasses();
    isForking = 0;
    for (const ForkHandler* each = handlers; each != nullptr; each = each->next_) each->inChild_();
  }

  static int watch() { return ::pthread_atfork(waitForOthers, end, enterChild); }

  static inline constinit ForkSafe<FutexLock> lock;
  static inline constinit ForkHandler* handlers OMBRIX_GUARDED_BY(lock) = nullptr;
  static const int isWatching;  // initialised before any thread is inside
};

const int ForkHandler::All::isWatching = watch();

void ForkGate::enter() noexcept {
  if (depth++ > 0) return;
  while (true) {
    inside.fetch_add(1);
    if (isForking.load() == 0) return;
    inside.fetch_sub(1);
    inside.notify_all();
    isForking.wait(1);
  }
}

void ForkGate::leave() noexcept {
  if (--depth > 0) return;
  inside.fetch_sub(1);
  if (isForking.load() != 0) inside.notify_all();
}

unsigned forkDepth() noexcept { return forks.load(std::memory_order_relaxed); }

ForkHandler::ForkHandler(std::function<void()> inChild) : inChild_(std::move(inChild)) {
  const LockGuard guard(All::lock);
  next_ = std::exchange(All::handlers, this);
  if (next_ != nullptr) next_->previous_ = this;
}

ForkHandler::~ForkHandler() {
  const LockGuard guard(All::lock);
  (previous_ != nullptr ? previous_->next_ : All::handlers) = next_;
  if (next_ != nullptr) next_->previous_ = previous_;
}

void atExit(void (*function)()) {
  const LockGuard lock(endings().mutex);
  if (endings().functions.empty()) std::atexit(runAll);
  endings().functions.emplace_back(::getpid(), function);
}

bool isProcessExiting() noexcept { return isExiting.load(std::memory_order_relaxed); }

}  // namespace ombrix::platform

#include "OmbrixPlatform/Concurrency/AtExit.hpp"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace ombrix::platform {
namespace {

struct Endings {
  std::mutex mutex;
  std::vector<std::pair<pid_t, void (*)()>> functions;
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
      const std::lock_guard lock(endings().mutex);
      if (endings().functions.empty()) return;
      last = endings().functions.back();
      endings().functions.pop_back();
    }
    if (last.first == ::getpid()) last.second();
  }
}

}  // namespace

void atExit(void (*function)()) {
  const std::lock_guard lock(endings().mutex);
  if (endings().functions.empty()) std::atexit(runAll);
  endings().functions.emplace_back(::getpid(), function);
}

void atFork(void (*before)(), void (*inParent)(), void (*inChild)()) {
  ::pthread_atfork(before, inParent, inChild);
}

bool isProcessExiting() noexcept { return isExiting.load(std::memory_order_relaxed); }

}  // namespace ombrix::platform

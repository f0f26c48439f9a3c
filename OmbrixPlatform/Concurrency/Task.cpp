#include "OmbrixPlatform/Concurrency/Task.hpp"

#include "OmbrixPlatform/Concurrency/Continuation.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {

std::shared_ptr<Executor> poolExecutor() {
  // It lives for ever, so the pointer owns nothing and copying it counts nothing.
  return {std::shared_ptr<void>(), &ThreadPool::executor()};
}

namespace detail {

void checkMayBlock() {
  if (Serial::isInsideAny()) {
    fatalError("blocking wait inside a section of an actor: what it waits for may need that actor");
  }
}

void BlockingWait::wait() {
  checkMayBlock();
  if (semaphore_.try_acquire()) return;
  const ThreadPool::BlockingScope blocking;
  semaphore_.acquire();
}

class Deadline {
 public:
  Deadline(std::chrono::duration<double> delay, const std::stop_token& outer)
      : follow_(outer, [this] { stop_.request_stop(); }), timer_(after(delay, [this] {
          hasPassed_ = true;
          stop_.request_stop();
        })) {}

  std::stop_source stop_;
  std::atomic<bool> hasPassed_{false};

 private:
  std::stop_callback<std::function<void()>> follow_;
  EventToken timer_;
};

std::shared_ptr<Deadline> makeDeadline(std::chrono::duration<double> delay,
                                       const std::stop_token& outer) {
  return std::make_shared<Deadline>(delay, outer);
}
std::stop_token stopToken(const Deadline& deadline) { return deadline.stop_.get_token(); }
bool hasPassed(const Deadline& deadline) { return deadline.hasPassed_; }

}  // namespace detail

Async<void> sleepFor(std::chrono::duration<double> delay) {
  const auto timer = std::make_shared<EventToken>();
  const std::function<void(Continuation<void>)> body = [&](Continuation<void> continuation) {
    *timer = after(delay, [continuation] { continuation.resume(); });
  };
  co_await withContinuation<void>(body);
}

}  // namespace ombrix::platform

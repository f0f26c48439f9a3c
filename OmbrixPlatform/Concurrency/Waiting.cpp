#include "OmbrixPlatform/Concurrency/Waiting.hpp"

#include <functional>

#include "OmbrixPlatform/Concurrency/Continuation.hpp"

namespace ombrix::platform {

Async<void> sleepFor(std::chrono::duration<double> delay) {
  const auto timer = std::make_shared<EventToken>();
  const std::function<void(Continuation<void>)> body = [&](Continuation<void> continuation) {
    *timer = after(delay, [continuation] { continuation.resume(); });
  };
  co_await withContinuation<void>(body);
}

namespace detail {

// Owns itself until its task has called it or can no longer call it.
struct TaskEnds::Watch {
  TaskWaiter waiter;
  std::size_t index;
  AsyncStream<std::size_t>::Continuation ended;
  std::shared_ptr<TaskStateBase> task;
  std::shared_ptr<Watch> self;

  void call() {
    const auto kept = std::move(self);
    ended.yield(index);
  }
};

TaskEnds::TaskEnds() : stream_([this](auto continuation) { ended_ = std::move(continuation); }) {}

TaskEnds::~TaskEnds() {
  for (const auto& watch : watches_) {
    if (watch->task->removeWaiter(watch->waiter)) watch->self = nullptr;
  }
}

void TaskEnds::add(std::size_t index, std::shared_ptr<TaskStateBase> task) {
  const auto watch = std::make_shared<Watch>(Watch{{}, index, *ended_, std::move(task), nullptr});
  watch->waiter.resumption = {[](void* self) { static_cast<Watch*>(self)->call(); }, watch.get()};
  watch->self = watch;
  watches_.push_back(watch);
  if (!watch->task->addWaiter(watch->waiter)) watch->call();
}

void TaskEnds::add(std::size_t index, std::chrono::duration<double> delay) {
  timer_ = after(delay, [index, ended = *ended_] { ended.yield(index); });
}

Async<std::size_t> TaskEnds::next() {
  const auto index = co_await stream_.next();
  if (!index) throw CancellationError();
  co_return *index;
}

}  // namespace detail

}  // namespace ombrix::platform

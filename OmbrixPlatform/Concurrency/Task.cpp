#include "OmbrixPlatform/Concurrency/Task.hpp"

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"
#include "OmbrixPlatform/Values/NestedCalls.hpp"

namespace ombrix::platform {

std::shared_ptr<Executor> poolExecutor() {
  // The pool is never destroyed, so the pointer owns nothing and copying it counts nothing.
  return {std::shared_ptr<void>(), &ThreadPool::executor()};
}

namespace detail {

void ResumeJob::resumeInPool(std::coroutine_handle<> coroutine) noexcept {
  ThreadPool::shared().post(ResumeJob(coroutine));
}

void checkMayBlock() {
  if (Serial::isInsideAny()) {
    fatalError("blocking wait inside a section of an actor: what it waits for may need that actor");
  }
}

void destroyFrame(std::coroutine_handle<> frame) noexcept {
  NestedCalls::make([frame] { frame.destroy(); });
}

// The waiting party may be destroyed as soon as the state says that it is over.
void BlockingWait::resume() {
  if (state_.exchange(State::over) == State::blocked) isOver_.release();
}

void BlockingWait::wait() {
  if (state_ == State::over) return;
  checkMayBlock();
  if (auto state = State::running; !state_.compare_exchange_strong(state, State::blocked)) return;
  const ThreadPool::BlockingScope blocking;
  const auto waitFor = [this](auto interval) { return isOver_.try_acquire_for(interval); };
  if (!waitUntilWatched(waitFor)) isOver_.acquire();
}

bool TaskStateBase::isFinished() const {
  const LockGuard lock(mutex_);
  return isFinished_;
}

bool TaskStateBase::addWaiter(TaskWaiter& waiter) {
  const LockGuard lock(mutex_);
  if (isFinished_) return false;
  waiter.isListed = true;
  waiter.previous = std::exchange(last_, &waiter);
  (waiter.previous ? waiter.previous->next : first_) = &waiter;
  return true;
}

bool TaskStateBase::removeWaiter(TaskWaiter& waiter) {
  const LockGuard lock(mutex_);
  if (isFinished_ || !std::exchange(waiter.isListed, false)) return false;
  (waiter.previous ? waiter.previous->next : first_) = waiter.next;
  (waiter.next ? waiter.next->previous : last_) = waiter.previous;
  return true;
}

// Once the flag is set no thread changes the list; a waiter may be destroyed once it was called.
void TaskStateBase::finish() {
  TaskWaiter* waiter = nullptr;
  {
    const LockGuard lock(mutex_);
    isFinished_ = true;
    waiter = first_;
  }
  while (waiter) {
    const auto resumption = waiter->resumption;
    waiter = waiter->next;
    resumption();
  }
}

bool TaskWait::begin(TaskStateBase& task, std::coroutine_handle<> coroutine,
                     const TaskContext& context) {
  task_ = &task;
  context_ = &context;
  coroutine_ = coroutine;
  waiter_.resumption = {[](void* self) { static_cast<TaskWait*>(self)->end(); }, this};
  if (!task.addWaiter(waiter_)) return false;
  if (context.stopToken.stop_possible()) onStop_.emplace(context.stopToken, Stop{*this});
  return !met_.exchange(true);
}

void TaskWait::end() {
  if (!met_.exchange(true)) return;
  const auto executor = context_->executor;  // the coroutine may end and destroy its task meanwhile
  executor->post(ResumeJob(coroutine_));
}

void TaskWait::Stop::operator()() const noexcept {
  if (!wait.task_->removeWaiter(wait.waiter_)) return;
  wait.wasCancelled_ = true;
  wait.end();
}

}  // namespace detail

}  // namespace ombrix::platform

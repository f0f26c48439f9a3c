#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/AsyncStream.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

/// Waits for a time, for several operations at once, or for a limited time.
///
///     auto profile = api.profile();
///     auto passes = api.passes();
///     auto both = whenAll(std::move(profile), std::move(passes));
///     auto limited = withTimeout(std::move(both), 10s);
///     auto [mine, bought] = co_await std::move(limited);
///
/// Work passed as `Async` belongs to the wait: it starts on the executor of the waiting task
/// and is cancelled when the wait ends first; work that has not begun by then never begins.
/// Work that ignores the cancellation runs on until it ends, so it must own what it uses. A
/// `Task` is shared with others and is never cancelled. Every wait ends at once with
/// `CancellationError` when the waiting task is cancelled. Values are copied out of the
/// finished work.
namespace ombrix::platform {

/// Waits for a delay in seconds by the clock service; only cancellation ends a delay that is not a
/// number or too long for the clock.
Async<void> sleepFor(std::chrono::duration<double> delay);

/// Thrown by `withTimeout`.
class TimeoutError : public Error {
 public:
  TimeoutError() : Error("the operation timed out") {}
};

namespace detail {

/// Reports which of several tasks finish, in the order in which they do.
class TaskEnds {
 public:
  TaskEnds();
  TaskEnds(const TaskEnds&) = delete;
  TaskEnds& operator=(const TaskEnds&) = delete;
  ~TaskEnds();

  /// @param index What `next` returns when the task finishes, or the delay in seconds has passed.
  void add(std::size_t index, std::shared_ptr<TaskStateBase> task);
  void add(std::size_t index, std::chrono::duration<double> delay);

  /// Throws `CancellationError` when the waiting task is cancelled. Call it at most once for each
  /// task.
  Async<std::size_t> next();

 private:
  struct Watch;

  std::optional<AsyncStream<std::size_t>::Continuation> ended_;
  AsyncStream<std::size_t> stream_;
  std::vector<std::shared_ptr<Watch>> watches_;
  EventToken timer_;
};

/// Tasks that are cancelled when the wait for them ends.
template <class T>
class OwnedTask {
 public:
  explicit OwnedTask(Task<T> task) : task_(std::move(task)) {}
  OwnedTask(OwnedTask&&) noexcept = default;
  OwnedTask& operator=(OwnedTask&&) = delete;
  ~OwnedTask() {
    if (auto state = stateOf(task_)) state->cancel();
  }
  const Task<T>& task() const { return task_; }

 private:
  Task<T> task_;
};

template <class T>
const Task<T>& taskOf(const Task<T>& task) {
  return task;
}
template <class T>
const Task<T>& taskOf(const OwnedTask<T>& owned) {
  return owned.task();
}

template <class T>
OwnedTask<T> started(Async<T> work, const std::shared_ptr<Executor>& executor) {
  return OwnedTask<T>(std::move(work).start(executor));
}
template <class T>
Task<T> started(Task<T> task, const std::shared_ptr<Executor>&) {
  return task;
}

template <class Work>
struct WorkValue;
template <class T>
struct WorkValue<Async<T>> {
  using Type = T;
};
template <class T>
struct WorkValue<Task<T>> {
  using Type = T;
};
template <class Work>
using ValueOf = typename WorkValue<Work>::Type;

/// The value of finished work; an empty tuple for work without a value.
template <class T>
auto finishedValue(const Task<T>& task) {
  if constexpr (std::is_void_v<T>) {
    task.get();
    return std::tuple<>();
  } else {
    return task.get();
  }
}
template <class T>
using ValueOrEmpty = std::conditional_t<std::is_void_v<T>, std::tuple<>, T>;

template <class... Work>
Async<std::tuple<ValueOrEmpty<ValueOf<Work>>...>> whenAllOf(std::tuple<Work...> works) {
  const TaskContext& context = co_await currentContext;
  TaskEnds ends;
  const auto start = [&context](auto&... work) {
    return std::tuple(started(std::move(work), context.executor)...);
  };
  const auto tasks = std::apply(start, works);
  const auto watch = [&ends](const auto&... task) {
    std::size_t index = 0;
    (ends.add(index++, stateOf(taskOf(task))), ...);
  };
  std::apply(watch, tasks);
  for (std::size_t left = sizeof...(Work); left > 0; --left) {
    const std::size_t index = co_await ends.next();
    const auto throwIfFailed = [index](const auto&... task) {
      std::size_t i = 0;
      ((i++ == index ? stateOf(taskOf(task))->throwIfFailed() : void()), ...);
    };
    std::apply(throwIfFailed, tasks);
  }
  const auto collect = [](const auto&... task) {
    return std::tuple<ValueOrEmpty<ValueOf<Work>>...>(finishedValue(taskOf(task))...);
  };
  auto values = std::apply(collect, tasks);
  co_return values;
}

template <class Work>
auto startAll(std::vector<Work>& works, const TaskContext& context, TaskEnds& ends) {
  std::vector<decltype(started(std::move(works.front()), context.executor))> tasks;
  tasks.reserve(works.size());
  for (auto& work : works) {
    tasks.push_back(started(std::move(work), context.executor));
    ends.add(tasks.size() - 1, stateOf(taskOf(tasks.back())));
  }
  return tasks;
}

template <class Work>
Async<ValueOf<Work>> withTimeoutOf(Work work, std::chrono::duration<double> delay) {
  const TaskContext& context = co_await currentContext;
  TaskEnds ends;
  const auto task = started(std::move(work), context.executor);
  ends.add(0, stateOf(taskOf(task)));
  ends.add(1, delay);
  const std::size_t ended = co_await ends.next();
  if (ended == 1) throw TimeoutError();
  co_return taskOf(task).get();
}

}  // namespace detail

/// Waits for all of several `Async` or `Task`; returns their values, empty tuples for those
/// without. When one fails, the wait ends at once with its exception.
template <class... Work>
auto whenAll(Work... works) -> Async<std::tuple<detail::ValueOrEmpty<detail::ValueOf<Work>>...>> {
  return detail::whenAllOf(std::tuple<Work...>(std::move(works)...));
}

/// The same for any number of one kind.
template <class Work>
auto whenAll(std::vector<Work> works)
    -> Async<std::vector<detail::ValueOrEmpty<detail::ValueOf<Work>>>> {
  const TaskContext& context = co_await currentContext;
  detail::TaskEnds ends;
  const auto tasks = detail::startAll(works, context, ends);
  for (std::size_t left = tasks.size(); left > 0; --left) {
    const std::size_t index = co_await ends.next();
    stateOf(detail::taskOf(tasks[index]))->throwIfFailed();
  }
  std::vector<detail::ValueOrEmpty<detail::ValueOf<Work>>> values;
  values.reserve(tasks.size());
  for (const auto& task : tasks) values.push_back(detail::finishedValue(detail::taskOf(task)));
  co_return values;
}

/// The work that ended first, and its value.
template <class T>
struct FirstOf {
  std::size_t index = 0;
  T value;
};

/// Waits for the first of one or more to finish; returns its value or throws its exception.
template <class Work>
auto whenAny(std::vector<Work> works)
    -> Async<FirstOf<detail::ValueOrEmpty<detail::ValueOf<Work>>>> {
  if (works.empty()) fatalError("whenAny of nothing would wait for ever");
  const TaskContext& context = co_await currentContext;
  detail::TaskEnds ends;
  const auto tasks = detail::startAll(works, context, ends);
  const std::size_t index = co_await ends.next();
  FirstOf<detail::ValueOrEmpty<detail::ValueOf<Work>>> first{
      index, detail::finishedValue(detail::taskOf(tasks[index]))};
  co_return first;
}

/// Waits no longer than a delay in seconds by the clock service; then throws `TimeoutError`. A
/// delay that is not a number sets no limit.
template <class T>
Async<T> withTimeout(Async<T> work, std::chrono::duration<double> delay) {
  return detail::withTimeoutOf(std::move(work), delay);
}
template <class T>
Async<T> withTimeout(Task<T> task, std::chrono::duration<double> delay) {
  return detail::withTimeoutOf(std::move(task), delay);
}

}  // namespace ombrix::platform

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "OmbrixCore/Concurrency/Atomic.hpp"
#include "OmbrixPlatform/Concurrency/NSOperation.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"

namespace ombrix {

/// Base of work on an operation queue that finishes later than the call that starts it.
///
/// A subclass overrides `execute` and calls `finish` when all its work, callbacks included, is
/// done. One state drives readiness, execution and completion. With each change of "state", and
/// once for each, observers of "ready", "executing" and "finished" are told as well, also where
/// their value stays the same; on the thread that made the change. Any thread.
class AsyncOperation : public platform::NSOperation {
 public:
  enum class OperationState { ready = 0, executing = 1, finished = 2 };

  /// The state of a raw value, or nothing for any but 0, 1 and 2.
  static std::optional<OperationState> operationState(std::int64_t rawValue);

  AsyncOperation();

  [[nodiscard]] OperationState state() const { return state_.wrappedValue(); }

  [[nodiscard]] bool isReady() const override;
  [[nodiscard]] bool isExecuting() const override;
  [[nodiscard]] bool isFinished() const override;
  [[nodiscard]] bool isAsynchronous() const override { return true; }
  [[nodiscard]] std::set<std::string> keyPathsForValuesAffectingValue(
      std::string_view key) const override;

  /// Runs `main`, empty unless overridden; then finishes at once when it was cancelled, else starts
  /// a task that awaits `execute`, unless it was finished by hand. Does nothing the second time.
  void start() override;

  /// The work; runs on the thread pool, outside the queue's job that starts it and after that. It
  /// must be overridden: here it stops the program, as an exception that leaves it does.
  virtual platform::Async<void> execute();

  /// Ends the operation; nothing happens the second time.
  void finish();

 protected:
  std::optional<std::int64_t> valueForKey(std::string_view key) const override;

  /// Whether `execute` waits or ends at once, without code of others before that. The thread that
  /// calls it may have other things to do, which are given to another thread where this is false.
  [[nodiscard]] virtual bool executesBriefly() const { return false; }

  // One state: what is ready does not execute.
  [[nodiscard]] bool mayStart() const override { return isReady(); }

 private:
  struct Execution {
    std::shared_ptr<AsyncOperation> operation;
    std::optional<platform::Async<void>> work;
  };

  /// Makes the transition that `decide` makes of the state; gives the new state to the one caller
  /// who made it, `finished` to all others.
  OperationState setState(auto decide);
  std::optional<std::int64_t> valueIn(OperationState state, std::string_view key) const;
  void executeOnPool();

  Atomic<OperationState> state_;
  std::optional<Execution> execution_;  // from the start until `execute` is over
};

/// Calls the block on the queue's thread once a barrier finds no operation that is ready but not
/// started; behind each barrier that finds one, another follows. Nothing is called when the queue
/// object is gone by then.
void addCompletionBarrierBlock(platform::NSOperationQueue& queue, std::function<void()> block);

}  // namespace ombrix

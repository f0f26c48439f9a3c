#include "OmbrixCore/Concurrency/AsyncOperation.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

std::optional<AsyncOperation::OperationState> AsyncOperation::operationState(
    std::int64_t rawValue) {
  if (rawValue < 0 || rawValue > 2) return std::nullopt;
  return static_cast<OperationState>(rawValue);
}

AsyncOperation::AsyncOperation() : state_(OperationState::ready) {}

bool AsyncOperation::isReady() const {
  return state() == OperationState::ready && NSOperation::isReady();
}
bool AsyncOperation::isExecuting() const { return state() == OperationState::executing; }
bool AsyncOperation::isFinished() const { return state() == OperationState::finished; }

std::set<std::string> AsyncOperation::keyPathsForValuesAffectingValue(std::string_view key) const {
  if (key == "ready" || key == "executing" || key == "finished") return {"state"};
  return NSOperation::keyPathsForValuesAffectingValue(key);
}

void AsyncOperation::start() {
  // Kept: the base class runs its empty `main` first; all that is observable comes from the state,
  // and leaving the call out would let a subclass's `main` go unrun.
  NSOperation::start();
  const auto after = setState([this](OperationState before) {
    if (before != OperationState::ready) return before;
    return isCancelled() ? OperationState::finished : OperationState::executing;
  });
  if (after != OperationState::executing) return;
  execution_.emplace();
  execution_->operation = std::static_pointer_cast<AsyncOperation>(shared_from_this());
  postFromStart([this] { executeOnPool(); });
}

// The operation holds itself until `execute` is over.
void AsyncOperation::executeOnPool() {
  static const platform::TaskContext context{platform::poolExecutor(), {}};
  auto& work = execution_->work;
  const platform::detail::InsideScope scope(static_cast<const NSOperation*>(this));
  if (!executesBriefly()) platform::detail::PoolJob::goesOn();
  platform::callOut("an operation's execute()", [&] { work.emplace(execute()); });
  work->begin(context, {[](void* self) {
                          auto* operation = static_cast<AsyncOperation*>(self);
                          auto execution = std::exchange(operation->execution_, std::nullopt);
                          platform::callOut("an operation's execute()",
                                            [&] { execution->work->outcome().throwIfError(); });
                        },
                        this});
}

platform::Async<void> AsyncOperation::execute() {
  platform::fatalError("Subclasses must implement `execute`.");
}

void AsyncOperation::finish() {
  setState([](OperationState) { return OperationState::finished; });
}

// Each transition is decided and stored in one step; only the caller who made it announces it.
AsyncOperation::OperationState AsyncOperation::setState(auto decide) {
  OperationState before{};
  const auto after = state_.mutate([&](OperationState& state) {
    before = state;
    return state = decide(state);
  });
  if (before == after) return OperationState::finished;
  std::shared_ptr<NSOperation> keepAlive;  // an observer may drop the last reference
  if (isObserved()) {
    platform::detail::PoolJob::goesOn();
    keepAlive = weak_from_this().lock();
    announceToObservers(
        "state", [&](auto key) { return valueIn(before, key); },
        [&](auto key) { return valueIn(after, key); });
  }
  // A queue has nothing to do when an operation begins.
  if (after == OperationState::finished) announceEnd();
  return after;
}

std::optional<std::int64_t> AsyncOperation::valueIn(OperationState state,
                                                    std::string_view key) const {
  if (key == "state") return static_cast<std::int64_t>(state);
  if (key == "ready") return state == OperationState::ready && NSOperation::isReady();
  if (key == "executing") return state == OperationState::executing;
  if (key == "finished") return state == OperationState::finished;
  return NSOperation::valueForKey(key);
}

std::optional<std::int64_t> AsyncOperation::valueForKey(std::string_view key) const {
  return valueIn(state(), key);
}

void addCompletionBarrierBlock(platform::NSOperationQueue& queue, std::function<void()> block) {
  queue.addBarrierBlock([weak = queue.weak_from_this(), block = std::move(block)] {
    const auto strong = weak.lock();
    if (!strong) return;
    const auto operations = strong->operations();
    const bool hasPending = std::any_of(operations.begin(), operations.end(), [](const auto& each) {
      return each->isReady() && !each->isExecuting() && !each->isFinished();
    });
    if (hasPending) {
      addCompletionBarrierBlock(*strong, block);
    } else {
      block();
    }
  });
}

}  // namespace ombrix

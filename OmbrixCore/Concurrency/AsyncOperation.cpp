#include "OmbrixCore/Concurrency/AsyncOperation.hpp"

#include <algorithm>
#include <utility>

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
  // Kept: the base class runs its empty `main` and its own phases first; all that is observable
  // comes from the state, and leaving the call out would let the base start it a second time.
  NSOperation::start();
  if (state() != OperationState::ready) return;
  if (isCancelled()) {
    finish();
    return;
  }
  setState(OperationState::executing);
  auto self = std::static_pointer_cast<AsyncOperation>(shared_from_this());
  platform::startTask([self = std::move(self)] { return self->execute(); });
}

platform::Async<void> AsyncOperation::execute() {
  platform::fatalError("Subclasses must implement `execute`.");
}

void AsyncOperation::finish() {
  // One caller wins, so that observers hear of it once, with no lock held.
  if (isFinishing_.exchange(true)) return;
  setState(OperationState::finished);
}

void AsyncOperation::setState(OperationState state) {
  announceChange("state", [&] {
    state_.mutate([&](OperationState& current) {
      if (current != OperationState::finished) current = state;
    });
  });
}

std::optional<std::int64_t> AsyncOperation::valueForKey(std::string_view key) const {
  if (key == "state") return static_cast<std::int64_t>(state());
  return NSOperation::valueForKey(key);
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

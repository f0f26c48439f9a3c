#include "OmbrixPlatform/Concurrency/NSOperation.hpp"

#include <array>
#include <iterator>
#include <mutex>
#include <utility>

#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::platform {
namespace {

constexpr std::string_view kStateKeys[] = {"ready", "executing", "finished", "cancelled"};

}  // namespace

NSOperation::NSOperation() = default;
NSOperation::~NSOperation() = default;

bool NSOperation::isReady() const {
  if (isCancelled()) return true;
  const std::lock_guard lock(mutex_);
  return unfinishedDependencies_ == 0;
}

bool NSOperation::isExecuting() const { return phase_.load() == Phase::executing; }
bool NSOperation::isFinished() const { return phase_.load() == Phase::finished; }

void NSOperation::start() {
  auto expected = Phase::ready;
  if (!phase_.compare_exchange_strong(expected, Phase::executing)) return;
  // An asynchronous operation announces its own state; the phases here only keep the second start
  // out.
  if (isAsynchronous()) {
    if (!isCancelled()) main();
    phase_.store(Phase::finished);
    return;
  }
  announceChange("executing", [] {});
  if (!isCancelled()) main();
  announceChange("finished", [this] { phase_.store(Phase::finished); });
}

void NSOperation::cancel() {
  if (isCancelled()) return;
  announceChange("cancelled", [this] { isCancelled_.store(true); });
}

void NSOperation::addDependency(const std::shared_ptr<NSOperation>& operation) {
  // Counted before the other one knows, so that its end is never missed.
  {
    const std::lock_guard lock(mutex_);
    dependencies_.push_back(operation);
    ++unfinishedDependencies_;
  }
  {
    const std::lock_guard lock(operation->mutex_);
    if (operation->hasFinished_.load() == 0) {
      operation->dependants_.push_back(weak_from_this());
      return;
    }
  }
  dependencyFinished();
}

std::vector<std::shared_ptr<NSOperation>> NSOperation::dependencies() const {
  const std::lock_guard lock(mutex_);
  return dependencies_;
}

void NSOperation::setCompletionBlock(std::function<void()> block) {
  const std::lock_guard lock(mutex_);
  completionBlock_ = std::move(block);
}

void NSOperation::waitUntilFinished() const {
  if (hasFinished_.load() != 0) return;
  detail::checkMayBlock();
  const ThreadPool::BlockingScope blocking;
  hasFinished_.wait(0);
}

std::string NSOperation::name() const {
  const std::lock_guard lock(mutex_);
  return name_;
}

void NSOperation::setName(std::string name) {
  const std::lock_guard lock(mutex_);
  name_.swap(name);
}

std::set<std::string> NSOperation::keyPathsForValuesAffectingValue(std::string_view key) const {
  if (key == "ready") return {"cancelled"};
  return {};
}

void NSOperation::announceChange(std::string_view key, const std::function<void()>& change) {
  const auto keepAlive = weak_from_this().lock();
  std::array<std::string_view, std::size(kStateKeys) + 1> affected{key};
  std::size_t count = 1;
  for (const auto other : kStateKeys) {
    if (other != key && isObserved(other) &&
        keyPathsForValuesAffectingValue(other).contains(std::string(key))) {
      affected[count++] = other;
    }
  }
  for (std::size_t i = 0; i < count; ++i) willChangeValueForKey(affected[i]);
  change();
  while (count > 0) didChangeValueForKey(affected[--count]);
  lookAgain();
}

std::optional<std::int64_t> NSOperation::valueForKey(std::string_view key) const {
  if (key == "ready") return isReady();
  if (key == "executing") return isExecuting();
  if (key == "finished") return isFinished();
  if (key == "cancelled") return isCancelled();
  return std::nullopt;
}

void NSOperation::lookAgain() {
  if (isFinished()) {
    finishOnce();
  } else if (const auto queue = owner()) {
    queue->operationChanged(*this);
  }
}

void NSOperation::finishOnce() {
  std::vector<std::weak_ptr<NSOperation>> dependants;
  std::vector<std::shared_ptr<NSOperation>> dependencies;
  std::shared_ptr<detail::OperationOwner> queue;
  std::function<void()> completionBlock;
  {
    const std::lock_guard lock(mutex_);
    if (hasFinished_.exchange(1) != 0) return;
    dependants.swap(dependants_);
    dependencies.swap(dependencies_);
    queue = std::move(owner_);
    completionBlock.swap(completionBlock_);
  }
  if (queue) queue->operationFinished(*this);
  for (const auto& weak : dependants) {
    if (const auto dependant = weak.lock()) dependant->dependencyFinished();
  }
  hasFinished_.notify_all();
  if (completionBlock) ThreadPool::shared().post(std::move(completionBlock));
}

void NSOperation::dependencyFinished() {
  announceChange("ready", [this] {
    const std::lock_guard lock(mutex_);
    --unfinishedDependencies_;
  });
}

bool NSOperation::enter(std::shared_ptr<detail::OperationOwner> owner) {
  const std::lock_guard lock(mutex_);
  if (std::exchange(wasQueued_, true)) return false;
  if (hasFinished_.load() == 0) owner_ = std::move(owner);
  return true;
}

std::shared_ptr<detail::OperationOwner> NSOperation::owner() const {
  const std::lock_guard lock(mutex_);
  return owner_;
}

}  // namespace ombrix::platform

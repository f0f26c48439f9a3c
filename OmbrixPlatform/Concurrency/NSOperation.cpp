#include "OmbrixPlatform/Concurrency/NSOperation.hpp"

#include <thread>
#include <utility>

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Concurrency/Detail/Turn.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"
#include "OmbrixPlatform/Values/NestedCalls.hpp"

namespace ombrix::platform {
namespace {

constexpr std::string_view kStateKeys[] = {"ready", "executing", "finished", "cancelled"};

}  // namespace

NSOperation::NSOperation() = default;

NSOperation::~NSOperation() {
  if (dependencies_.empty()) return;
  detail::NestedCalls::make([held = std::move(dependencies_)]() mutable { held.clear(); });
}

bool NSOperation::isReady() const { return isCancelled() || unfinishedDependencies_.load() == 0; }
bool NSOperation::isExecuting() const {
  return (flags_.load() & (kExecuting | kFinished)) == kExecuting;
}
bool NSOperation::isFinished() const { return (flags_.load() & kFinished) != 0; }

void NSOperation::start() {
  const auto before = flags_.fetch_or(kExecuting);
  if ((before & kExecuting) != 0) return;
  const bool announcesItself = isAsynchronous();
  std::shared_ptr<NSOperation> keepAlive;  // an observer may release it
  if (!announcesItself && isObserved()) {
    keepAlive = weak_from_this().lock();
    announceToObservers("executing", before, before | kExecuting);
  }
  if (!isCancelled()) {
    const detail::InsideScope scope(this);
    callOut("an operation's main()", [this] { main(); });
  }
  if (announcesItself) return;
  const auto during = flags_.fetch_or(kFinished);
  if (isObserved()) {
    keepAlive = weak_from_this().lock();
    announceToObservers("finished", during, during | kFinished);
  }
  announceEnd(Starting::isLastAct(this));
}

void NSOperation::cancel() {
  std::uint32_t before = 0;
  std::size_t unfinished = 0;
  {
    // Decided together, so that only one of this and the last dependency's end makes it ready.
    const LockGuard lock(mutex_);
    before = flags_.fetch_or(kCancelled);
    unfinished = unfinishedDependencies_;
  }
  if ((before & kCancelled) != 0) return;
  const auto keepAlive = weak_from_this().lock();
  if (isObserved()) announceToObservers("cancelled", before, before | kCancelled, unfinished);
  lookAgain();
}

void NSOperation::addDependency(const std::shared_ptr<NSOperation>& operation) {
  // Counted before the other operation knows about this one, so that its end is never missed.
  {
    const LockGuard lock(mutex_);
    dependencies_.push_back(operation);
    ++unfinishedDependencies_;
  }
  {
    const LockGuard lock(operation->mutex_);
    if (operation->hasFinished_.load() == 0) {
      operation->dependants_.push_back(weak_from_this());
      return;
    }
  }
  dependencyFinished();
}

std::vector<std::shared_ptr<NSOperation>> NSOperation::dependencies() const {
  const LockGuard lock(mutex_);
  return dependencies_;
}

void NSOperation::setCompletionBlock(std::function<void()> block) {
  const LockGuard lock(mutex_);
  completionBlock_ = std::move(block);
}

void NSOperation::waitUntilFinished() const {
  if (hasFinished_.load() != 0) return;
  if (detail::InsideScope::isInside(this)) {
    fatalError("an operation waits for its own end inside its own work");
  }
  detail::checkMayBlock();
  const ThreadPool::BlockingScope blocking;
  detail::waitUntilWatched([this](auto interval) {
    std::this_thread::sleep_for(interval);
    return hasFinished_.load() != 0;
  });
  hasFinished_.wait(0);
}

std::string NSOperation::name() const {
  const LockGuard lock(mutex_);
  return name_;
}

void NSOperation::setName(std::string name) {
  const LockGuard lock(mutex_);
  name_.swap(name);
}

std::set<std::string> NSOperation::keyPathsForValuesAffectingValue(std::string_view key) const {
  if (key == "ready") return {"cancelled"};
  return {};
}

void NSOperation::announce(std::string_view key, const Values& before, const Values& after) {
  const auto keepAlive = weak_from_this().lock();
  if (isObserved()) announceToObservers(key, before, after);
  lookAgain();
}

void NSOperation::announceToObservers(std::string_view key, const Values& before,
                                      const Values& after) {
  announceChange(key, before(key), after(key));
  for (const auto other : kStateKeys) {
    if (other != key && keyPathsForValuesAffectingValue(other).contains(std::string(key))) {
      announceChange(other, before(other), after(other));
    }
  }
}

void NSOperation::announceToObservers(std::string_view key, std::uint32_t before,
                                      std::uint32_t after, std::size_t unfinishedDependencies) {
  const auto tell = [&](std::string_view each) {
    const auto old = valueIn(before, unfinishedDependencies, each);
    const auto now = valueIn(after, unfinishedDependencies, each);
    if (old != now) announceChange(each, old, now);
  };
  tell(key);
  for (const auto other : kStateKeys) {
    if (other == key || !keyPathsForValuesAffectingValue(other).contains(std::string(key))) {
      continue;
    }
    tell(other);
  }
}

std::optional<std::int64_t> NSOperation::valueIn(std::uint32_t state,
                                                 std::size_t unfinishedDependencies,
                                                 std::string_view key) const {
  if (key == "ready") return (state & kCancelled) != 0 || unfinishedDependencies == 0;
  if (key == "executing") return (state & (kExecuting | kFinished)) == kExecuting;
  if (key == "finished") return (state & kFinished) != 0;
  if (key == "cancelled") return (state & kCancelled) != 0;
  return std::nullopt;
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
    announceEnd();
  } else if (const auto listener = queue()) {
    listener->operationChanged(*this);
  }
}

void NSOperation::announceEnd(bool isLastAct) {
  std::vector<std::weak_ptr<NSOperation>> dependants;
  std::vector<std::shared_ptr<NSOperation>> dependencies;
  std::shared_ptr<detail::OperationListener> listener;
  std::function<void()> completionBlock;
  {
    const LockGuard lock(mutex_);
    if (hasFinished_.exchange(1) != 0) return;
    dependants.swap(dependants_);
    dependencies.swap(dependencies_);
    listener = std::move(queue_);
    completionBlock.swap(completionBlock_);
  }
  // Without its queue only the caller holds it.
  const auto keepAlive = listener
                             ? listener->operationFinished(*this, isLastAct && dependants.empty())
                             : weak_from_this().lock();
  for (const auto& weak : dependants) {
    if (const auto dependant = weak.lock()) dependant->dependencyFinished();
  }
  hasFinished_.notify_all();
  if (completionBlock) ThreadPool::shared().post(std::move(completionBlock));
}

void NSOperation::dependencyFinished() {
  {
    const LockGuard lock(mutex_);
    if (--unfinishedDependencies_ > 0 || isCancelled()) return;
  }
  const auto keepAlive = weak_from_this().lock();
  // A subclass may have its own reasons not to be ready.
  if (isObserved()) detail::PoolJob::goesOn();
  if (isObserved() && isReady()) announceChange("ready", 0, 1);
  lookAgain();
}

void NSOperation::postFromStart(Job job) const {
  if (Starting::isLastAct(this)) {
    ThreadPool::shared().postNext(std::move(job), detail::currentPriority());
  } else {
    ThreadPool::shared().post(std::move(job), detail::currentPriority());
  }
}

NSOperation::Entered NSOperation::enter(std::shared_ptr<detail::OperationListener> queue) {
  const LockGuard lock(mutex_);
  if (hasFinished_.load() != 0) return Entered::hasFinished;
  if (std::exchange(wasQueued_, true)) return Entered::again;
  queue_ = std::move(queue);
  return Entered::yes;
}

std::shared_ptr<detail::OperationListener> NSOperation::queue() const {
  const LockGuard lock(mutex_);
  return queue_;
}

}  // namespace ombrix::platform

#include "OmbrixPlatform/Concurrency/MainLoop.hpp"

#include <chrono>
#include <exception>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Detail/ThreadShortage.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

constexpr std::chrono::seconds kOwnThreadIdleTime{5};

thread_local const MainLoop* loopOfJob = nullptr;  // the loop whose job this thread runs

// The loops whose thread could not be started before.
FutexLock listLock;
MainLoop* lastListed OMBRIX_GUARDED_BY(listLock) = nullptr;
std::size_t listedCount OMBRIX_GUARDED_BY(listLock) = 0;

}  // namespace

MainLoop::~MainLoop() {
  const LockGuard lock(listLock);
  if (!isListed_) return;
  if (previous_) previous_->next_ = next_;
  (next_ ? next_->previous_ : lastListed) = previous_;
  --listedCount;
}

void MainLoop::list() {
  const LockGuard lock(listLock);
  if (std::exchange(isListed_, true)) return;
  previous_ = std::exchange(lastListed, this);
  if (previous_) previous_->next_ = this;
  ++listedCount;
}

const std::shared_ptr<MainLoop>& MainLoop::shared() {
  static const auto& loop = *new auto(std::make_shared<MainLoop>());
  return loop;
}

void MainLoop::post(Job job) {
  {
    const LockGuard lock(mutex_);
    jobs_.push_back(std::move(job));
    changed_.notify_all();
    startOwnThread();
  }
  detail::retryAfterShortage();
}

void MainLoop::retryOwnThreads() {
  std::vector<std::shared_ptr<MainLoop>> loops;  // released without the lock
  {
    const LockGuard lock(listLock);
    try {
      loops.reserve(listedCount);
    } catch (const std::bad_alloc&) {
      return detail::noteThreadShortage();
    }
    for (auto* each = lastListed; each; each = each->previous_) {
      loops.push_back(each->weak_from_this().lock());
    }
  }
  for (const auto& loop : loops) {
    if (!loop) continue;
    const LockGuard lock(loop->mutex_);
    loop->startOwnThread();
  }
}

// If no thread can be started, the waiting jobs stay and the start is retried.
void MainLoop::startOwnThread() {
  if (ownThreadServes_ || isAdopted_ || adopters_ > 0 || jobs_.empty()) return;
  try {
    std::thread([this, self = shared_from_this()] { serve(); }).detach();
    ownThreadServes_ = true;
  } catch (const std::exception&) {
    list();
    detail::noteThreadShortage();
  }
}

bool MainLoop::runOne() {
  if (jobs_.empty()) return false;
  Job job = std::move(jobs_.front());
  jobs_.pop_front();
  const UnlockGuard unlocked(mutex_);
  const auto* outer = std::exchange(loopOfJob, this);
  callOut("a job of the main queue", job);
  job = nullptr;
  loopOfJob = outer;
  return true;
}

void MainLoop::serve() {
  const LockGuard lock(mutex_);
  auto givesWay = [this]() OMBRIX_REQUIRES(mutex_) { return isAdopted_ || adopters_ > 0; };
  auto isWanted = [&]() OMBRIX_REQUIRES(mutex_) { return givesWay() || !jobs_.empty(); };
  while (changed_.wait_for(mutex_, kOwnThreadIdleTime, isWanted) && !givesWay()) runOne();
  ownThreadServes_ = false;
  changed_.notify_all();
}

// Waits for the job that the library's own thread is running: there is only one main thread. Until
// `release` that thread stays away, whatever is handed back meanwhile.
void MainLoop::adopt() {
  if (loopOfJob == this) fatalError("the main queue was pumped or run inside one of its own jobs");
  isAdopted_ = true;
  adopter_ = std::this_thread::get_id();
  ++adopters_;
  changed_.notify_all();
  changed_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return !ownThreadServes_; });
}

void MainLoop::release() {
  --adopters_;
  startOwnThread();
}

void MainLoop::run() {
  UniqueLock lock(mutex_);
  adopt();
  const auto isNeeded = [this]() OMBRIX_REQUIRES(mutex_) { return isStopping_ || !jobs_.empty(); };
  while (!isStopping_) {
    if (!runOne()) changed_.wait(mutex_, isNeeded);
  }
  isStopping_ = false;
  isAdopted_ = false;
  release();
  lock.unlock();
  detail::retryAfterShortage();
}

void MainLoop::stop() {
  const LockGuard lock(mutex_);
  isStopping_ = true;
  changed_.notify_all();
}

bool MainLoop::pump() {
  UniqueLock lock(mutex_);
  adopt();
  std::size_t count = jobs_.size();
  const bool hasJobs = count > 0;
  while (count-- > 0 && runOne()) {
  }
  release();
  lock.unlock();
  detail::retryAfterShortage();
  return hasJobs;
}

void MainLoop::handBack() {
  {
    const LockGuard lock(mutex_);
    isAdopted_ = false;
    startOwnThread();
  }
  detail::retryAfterShortage();
}

bool MainLoop::isMainThread() {
  const LockGuard lock(mutex_);
  return (isAdopted_ || adopters_ > 0) && adopter_ == std::this_thread::get_id();
}

std::shared_ptr<Executor> makeMainExecutor() { return MainLoop::shared(); }

template <>
std::shared_ptr<Executor> makeDefault() {
  return makeMainExecutor();
}

}  // namespace ombrix::platform

#include "OmbrixCore/Data/Stores/BackgroundWriter.hpp"

#include <algorithm>
#include <cerrno>
#include <set>
#include <vector>

#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixPlatform/Concurrency/AtExit.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Files/FileError.hpp"

namespace ombrix::detail {
namespace {

using platform::ThreadPool;

constexpr std::chrono::seconds kLongestWaitAtExit{30};

/// The writers of the process for which changes wait or are under way; a process must not end
/// without them.
struct Unwritten {
  platform::FutexLock lock;
  std::set<std::shared_ptr<BackgroundWriter>> writers;
  std::atomic<bool> isExiting{false};
};

Unwritten& unwritten() {
  static Unwritten& instance = *new Unwritten;  // outlives exit: background threads write on
  return instance;
}

}  // namespace

void BackgroundWriter::awaitAllAtExit() {
  unwritten().isExiting = true;
  std::vector<std::shared_ptr<BackgroundWriter>> writers;
  {
    const std::lock_guard lock(unwritten().lock);
    writers.assign(unwritten().writers.begin(), unwritten().writers.end());
  }
  const Deadline deadline = std::chrono::steady_clock::now() + kLongestWaitAtExit;
  for (const auto& writer : writers) writer->awaitUntil(deadline);
}

/// Waits until what was handed in is made, by other threads: this one could not give up a call that
/// does not return.
void BackgroundWriter::awaitUntil(Deadline deadline) {
  {
    Lock lock(mutex_);
    const ThreadPool::BlockingScope blocking;
    const auto isMade = [this, last = newest_] {
      return made_ >= last || maker_ == std::this_thread::get_id();
    };
    if (turnEnded_.wait_until(lock, deadline, isMade)) return;
  }
  // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
  logItemStore("value", "Data: Error saving data to file for in store: ",
               platform::FileError(ETIMEDOUT, "write", fileURL_.path()));
}

void BackgroundWriter::makeLater(std::uint64_t place, Change change) {
  Waiting replaced;  // let go of outside the lock
  Lock lock(mutex_);
  if (place < newest_) return;
  newest_ = place;
  replaced = std::exchange(waiting_, std::pair(place, std::move(change)));
  settle(lock);
  if (unwritten().isExiting) awaitUntil(std::chrono::steady_clock::now() + kLongestWaitAtExit);
}

/// With the lock held, which it gives up: has what waits made, or sees that nothing is left to do.
void BackgroundWriter::settle(Lock& lock) {
  const bool isIdle = !isScheduled_ && maker_ == std::thread::id();
  const bool mustSchedule = waiting_ && !isScheduled_;
  isScheduled_ = isScheduled_ || mustSchedule;
  lock.unlock();
  if (mustSchedule) {
    schedule();
  } else if (isIdle) {
    leave();
  }
}

void BackgroundWriter::schedule() {
  static std::once_flag isRegistered;
  std::call_once(isRegistered, [] { platform::atExit(awaitAllAtExit); });
  {
    const std::lock_guard registryLock(unwritten().lock);
    unwritten().writers.insert(shared_from_this());
  }
  try {
    ThreadPool::shared().post([self = shared_from_this()] { self->makeWaiting(); });
  } catch (const std::exception&) {
    makeWaiting();  // no thread is to be had
  }
}

/// Leaves the registry, unless something has come meanwhile.
void BackgroundWriter::leave() {
  const std::lock_guard registryLock(unwritten().lock);
  const Lock lock(mutex_);
  if (!waiting_ && !isScheduled_ && maker_ == std::thread::id()) {
    unwritten().writers.erase(shared_from_this());
  }
}

/// Makes changes until none waits.
void BackgroundWriter::makeWaiting() {
  Lock lock(mutex_);
  // The one under way, on another thread, sees to what came meanwhile when it ends.
  while (waiting_ && maker_ == std::thread::id()) {
    auto [place, change] = *std::exchange(waiting_, std::nullopt);
    make(place, std::move(change), lock);
  }
  isScheduled_ = false;
  const bool isIdle = maker_ == std::thread::id();
  lock.unlock();
  if (isIdle) leave();
}

/// With the lock held, which it gives up meanwhile, and the turn free.
void BackgroundWriter::make(std::uint64_t place, Change change, Lock& lock) {
  maker_ = std::this_thread::get_id();
  lock.unlock();
  try {
    change();
  } catch (const std::exception& error) {
    // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
    logItemStore("value", "Data: Error saving data to file for in store: ", error);
  }
  change = nullptr;
  lock.lock();
  maker_ = {};
  made_ = std::max(made_, place);
  turnEnded_.notify_all();
}

void BackgroundWriter::makeNow(std::uint64_t place, const Change& change) {
  Waiting replaced;
  Lock lock(mutex_);
  newest_ = std::max(newest_, place);
  if (waiting_ && waiting_->first < place) replaced.swap(waiting_);
  if (maker_ == std::this_thread::get_id()) {  // from inside another one
    lock.unlock();
    change();
    lock.lock();
    made_ = std::max(made_, place);
    return;
  }
  if (maker_ != std::thread::id()) {
    const ThreadPool::BlockingScope blocking;
    turnEnded_.wait(lock, [this] { return maker_ == std::thread::id(); });
  }
  if (made_ < place) make(place, change, lock);
  settle(lock);
}

void BackgroundWriter::flush() {
  Lock lock(mutex_);
  const std::uint64_t last = newest_;
  if (maker_ == std::this_thread::get_id()) return;
  while (made_ < last) {
    if (waiting_ && maker_ == std::thread::id()) {
      auto [place, change] = *std::exchange(waiting_, std::nullopt);
      make(place, std::move(change), lock);
    } else {
      const ThreadPool::BlockingScope blocking;
      turnEnded_.wait(lock);
    }
  }
  settle(lock);
}

}  // namespace ombrix::detail

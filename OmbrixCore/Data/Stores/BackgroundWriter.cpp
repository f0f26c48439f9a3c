#include "OmbrixCore/Data/Stores/BackgroundWriter.hpp"

#include <algorithm>
#include <set>
#include <vector>

#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixPlatform/Concurrency/AtExit.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::detail {
namespace {

using platform::ThreadPool;

/// The writers of the process for which changes wait; a process must not end without them.
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

void BackgroundWriter::flushAtExit() {
  constexpr std::chrono::seconds kLongestWait{30};
  unwritten().isExiting = true;
  std::vector<std::shared_ptr<BackgroundWriter>> writers;
  {
    const std::lock_guard lock(unwritten().lock);
    writers.assign(unwritten().writers.begin(), unwritten().writers.end());
  }
  const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
  for (const auto& writer : writers) writer->flushUntil(deadline);
}

void BackgroundWriter::makeLater(std::uint64_t place, Change change) {
  Waiting replaced;  // let go of outside the lock
  Lock lock(mutex_);
  if (place < newest_) return;
  newest_ = place;
  replaced = std::exchange(waiting_, std::pair(place, std::move(change)));
  scheduleIfNeeded(lock);
}

/// With the lock held, which it gives up: has what waits made.
void BackgroundWriter::scheduleIfNeeded(Lock& lock) {
  if (!waiting_ || isScheduled_) return;
  isScheduled_ = true;
  lock.unlock();
  static std::once_flag isRegistered;
  std::call_once(isRegistered, [] { platform::atExit(flushAtExit); });
  {
    const std::lock_guard registryLock(unwritten().lock);
    unwritten().writers.insert(shared_from_this());
  }
  if (unwritten().isExiting) {
    makeWaiting();
    return;
  }
  try {
    ThreadPool::shared().post([self = shared_from_this()] { self->makeWaiting(); });
  } catch (const std::exception&) {
    makeWaiting();  // no thread is to be had
  }
}

/// Makes changes until none waits.
void BackgroundWriter::makeWaiting() {
  {
    Lock lock(mutex_);
    // The one under way, on another thread, schedules what came meanwhile when it ends.
    while (waiting_ && maker_ == std::thread::id()) {
      auto [place, change] = *std::exchange(waiting_, std::nullopt);
      make(place, std::move(change), lock);
    }
    isScheduled_ = false;
  }
  const std::lock_guard registryLock(unwritten().lock);
  const Lock lock(mutex_);
  if (!waiting_ && !isScheduled_) unwritten().writers.erase(shared_from_this());
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
  made_ = place;
  turnEnded_.notify_all();
}

/// With the lock held: waits until no change is under way. False when the calling thread itself is
/// making one, or at the deadline.
bool BackgroundWriter::awaitTurn(Lock& lock, const Deadline& deadline) {
  if (maker_ == std::thread::id()) return true;
  if (maker_ == std::this_thread::get_id()) return false;
  const ThreadPool::BlockingScope blocking;
  const auto isFree = [this] { return maker_ == std::thread::id(); };
  if (deadline) return turnEnded_.wait_until(lock, *deadline, isFree);
  turnEnded_.wait(lock, isFree);
  return true;
}

void BackgroundWriter::makeNow(std::uint64_t place, const Change& change) {
  Waiting replaced;
  Lock lock(mutex_);
  newest_ = std::max(newest_, place);
  if (waiting_ && waiting_->first < place) replaced.swap(waiting_);
  if (!awaitTurn(lock, std::nullopt)) {
    lock.unlock();
    change();  // from inside another one
    return;
  }
  if (made_ < place) make(place, change, lock);
  scheduleIfNeeded(lock);
}

void BackgroundWriter::flush() { flushUntil(std::nullopt); }

void BackgroundWriter::flushUntil(const Deadline& deadline) {
  Lock lock(mutex_);
  const std::uint64_t last = newest_;
  while (made_ < last && awaitTurn(lock, deadline)) {
    if (made_ >= last || !waiting_) break;
    auto [place, change] = *std::exchange(waiting_, std::nullopt);
    make(place, std::move(change), lock);
  }
  scheduleIfNeeded(lock);
}

}  // namespace ombrix::detail

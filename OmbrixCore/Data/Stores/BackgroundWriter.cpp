#include "OmbrixCore/Data/Stores/BackgroundWriter.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <set>

#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Concurrency/QuietThread.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Files/FileError.hpp"

namespace ombrix::detail {
namespace {

using platform::ThreadPool;

constexpr std::chrono::seconds kLongestWaitAtExit{30};

}  // namespace

/// What the writers of the process share.
struct BackgroundWriter::Shared {
  platform::ForkSafe<platform::FutexLock> lock;      // one for all of them
  std::set<std::shared_ptr<BackgroundWriter>> busy;  // all that are not idle
  std::atomic<bool> isExiting{false};
  // A child makes its changes at once: nothing is left to do at its end.
  const platform::ForkHandler onFork{[this] { std::construct_at(&busy); }};
};

BackgroundWriter::Shared& BackgroundWriter::shared() {
  static Shared& instance = *new Shared;  // outlives exit: background threads write on
  return instance;
}

void BackgroundWriter::enterChild() {
  std::construct_at(&waiting_);
  if (maker_ != std::this_thread::get_id()) maker_ = {};
  made_ = newest_;
  isScheduled_ = false;
  std::construct_at(&turnEnded_);  // threads that are no more may wait for the old one
}

/// With the lock held, after a change of state: the end of the process finds the writers that have
/// something left to do.
void BackgroundWriter::list() {
  const bool isIdle = !waiting_ && !isScheduled_ && maker_ == std::thread::id();
  if (isIdle) {
    shared().busy.erase(shared_from_this());
  } else {
    try {
      shared().busy.insert(shared_from_this());
    } catch (const std::bad_alloc&) {  // The change is made all the same.
    }
  }
}

void BackgroundWriter::makeAllAtExit() {
  shared().isExiting = true;
  Lock lock(shared().lock);
  const Writers writers(shared().busy.begin(), shared().busy.end());
  lock.unlock();
  if (!writers.empty()) makeAtExit(writers);
}

/// At the end of the process: the pool may have no thread left, or none that is free.
void BackgroundWriter::makeAtExit(const Writers& writers) {
  const Deadline deadline = std::chrono::steady_clock::now() + kLongestWaitAtExit;
  const auto makeAll = [writers, deadline] {
    for (const auto& writer : writers) {
      if (std::chrono::steady_clock::now() < deadline) writer->makeWaiting();
    }
  };
  // This thread only waits where it can: it could not give up a call that does not return.
  if (auto thread = platform::startQuietThread("ombrix-stores", makeAll); thread.joinable()) {
    thread.detach();
  } else {
    makeAll();
  }
  for (const auto& writer : writers) writer->awaitUntil(deadline);
}

/// Waits until what was handed in is made, by whichever thread.
void BackgroundWriter::awaitUntil(Deadline deadline) {
  {
    Lock lock(shared().lock);
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
  Lock lock(shared().lock);
  if (place < newest_) return;
  newest_ = place;
  replaced = std::exchange(waiting_, std::pair(place, std::move(change)));
  settle(lock);
  if (shared().isExiting && !platform::isForkedFromPool()) makeAtExit({shared_from_this()});
}

/// With the lock held, which it gives up: has what waits made, or sees that nothing is left to do.
void BackgroundWriter::settle(Lock& lock) {
  const bool mustSchedule = waiting_ && !std::exchange(isScheduled_, true);
  list();
  lock.unlock();
  if (mustSchedule) schedule();
}

void BackgroundWriter::schedule() {
  if (platform::isForkedFromPool()) {
    makeWaiting();
    awaitUntil(std::chrono::steady_clock::now() + kLongestWaitAtExit);
    return;
  }
  try {
    static std::once_flag isRegistered;
    std::call_once(isRegistered, [] { platform::atExit(makeAllAtExit); });
    ThreadPool::shared().post([self = shared_from_this()] { self->makeWaiting(); });
  } catch (const std::exception&) {
    makeWaiting();  // no memory is to be had
  }
}

/// Makes changes until none waits.
void BackgroundWriter::makeWaiting() {
  Lock lock(shared().lock);
  // The one under way, on another thread, sees to what came meanwhile when it ends.
  while (waiting_ && maker_ == std::thread::id()) {
    auto [place, change] = *std::exchange(waiting_, std::nullopt);
    make(place, std::move(change), lock);
  }
  isScheduled_ = false;
  list();
}

/// With the lock held, which it gives up meanwhile, and the turn free.
void BackgroundWriter::make(std::uint64_t place, Change change, Lock& lock) {
  maker_ = std::this_thread::get_id();
  list();
  lock.unlock();
  try {
    change();
  } catch (const std::exception& error) {
    try {
      // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
      logItemStore("value", "Data: Error saving data to file for in store: ", error);
    } catch (const std::bad_alloc&) {  // Neither is there memory for the line.
    }
  }
  change = nullptr;
  lock.lock();
  maker_ = {};
  made_ = std::max(made_, place);
  turnEnded_.notify_all();
}

void BackgroundWriter::makeNow(std::uint64_t place, const Change& change) {
  Waiting replaced;
  Lock lock(shared().lock);
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
  Lock lock(shared().lock);
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

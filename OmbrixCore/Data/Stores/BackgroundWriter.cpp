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

using platform::LockGuard;
using platform::ThreadPool;
using platform::UnlockGuard;

constexpr std::chrono::seconds kLongestWaitAtExit{30};

}  // namespace

/// State that all writers of the process share.
struct BackgroundWriter::Shared {
  // All that are not idle.
  std::set<std::shared_ptr<BackgroundWriter>> busy OMBRIX_GUARDED_BY(lock_);
  std::atomic<bool> isExiting{false};
  // A forked child makes its changes at once, so nothing is left to do at its end.
  const platform::ForkHandler onFork{
      [this]() OMBRIX_NO_THREAD_SAFETY_ANALYSIS { std::construct_at(&busy); }};
};

BackgroundWriter::Shared& BackgroundWriter::shared() {
  static Shared& instance = *new Shared;  // outlives exit: background threads still write
  return instance;
}

void BackgroundWriter::enterChild() {
  std::construct_at(&waiting_);
  if (maker_ != std::this_thread::get_id()) maker_ = {};
  made_ = newest_;
  isScheduled_ = false;
  std::construct_at(&turnEnded_);  // threads that did not come along may wait for the old one
}

/// Called after a change of state, so that the end of the process finds the writers with changes
/// left to make.
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
  Writers writers;
  {
    const LockGuard lock(lock_);
    writers.assign(shared().busy.begin(), shared().busy.end());
  }
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
  // This thread only waits, where possible: it could not give up a call that does not return.
  if (auto thread = platform::startQuietThread("ombrix-stores", makeAll); thread.joinable()) {
    thread.detach();
  } else {
    makeAll();
  }
  for (const auto& writer : writers) writer->awaitUntil(deadline);
}

/// Waits until the changes handed in so far are made, by any thread.
void BackgroundWriter::awaitUntil(Deadline deadline) {
  {
    const LockGuard lock(lock_);
    const ThreadPool::BlockingScope blocking;
    const auto isMade = [this, last = newest_]() OMBRIX_REQUIRES(lock_) {
      return made_ >= last || maker_ == std::this_thread::get_id();
    };
    if (turnEnded_.wait_until(lock_, deadline, isMade)) return;
  }
  // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
  logItemStore("value", "Data: Error saving data to file for in store: ",
               platform::FileError(ETIMEDOUT, "write", fileURL_.path()));
}

void BackgroundWriter::makeLater(std::uint64_t place, Change change) {
  Waiting replaced;  // destroyed outside the lock
  bool mustSchedule = false;
  {
    const LockGuard lock(lock_);
    if (place < newest_) return;
    newest_ = place;
    replaced = std::exchange(waiting_, std::pair(place, std::move(change)));
    mustSchedule = settle();
  }
  if (mustSchedule) schedule();
  if (shared().isExiting && !platform::isForkedFromPool()) makeAtExit({shared_from_this()});
}

/// Whether the caller, having released the lock, must schedule a waiting change.
bool BackgroundWriter::settle() {
  const bool mustSchedule = waiting_ && !std::exchange(isScheduled_, true);
  list();
  return mustSchedule;
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
    makeWaiting();  // memory is short
  }
}

/// Makes changes until none waits.
void BackgroundWriter::makeWaiting() {
  const LockGuard lock(lock_);
  // A thread that is making a change takes the ones that came meanwhile when it is done.
  while (waiting_ && maker_ == std::thread::id()) {
    auto [place, change] = *std::exchange(waiting_, std::nullopt);
    make(place, std::move(change));
  }
  isScheduled_ = false;
  list();
}

/// With the turn free; releases the lock meanwhile.
void BackgroundWriter::make(std::uint64_t place, Change change) {
  maker_ = std::this_thread::get_id();
  list();
  {
    const UnlockGuard unlocked(lock_);
    try {
      change();
    } catch (const std::exception& error) {
      try {
        // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
        logItemStore("value", "Data: Error saving data to file for in store: ", error);
      } catch (const std::bad_alloc&) {  // There is no memory for the line, either.
      }
    }
    change = nullptr;
  }
  maker_ = {};
  made_ = std::max(made_, place);
  turnEnded_.notify_all();
}

void BackgroundWriter::makeNow(std::uint64_t place, const Change& change) {
  Waiting replaced;
  bool mustSchedule = false;
  {
    const LockGuard lock(lock_);
    newest_ = std::max(newest_, place);
    if (waiting_ && waiting_->first < place) replaced.swap(waiting_);
    if (maker_ == std::this_thread::get_id()) {  // called from inside another change
      {
        const UnlockGuard unlocked(lock_);
        change();
      }
      made_ = std::max(made_, place);
      return;
    }
    if (maker_ != std::thread::id()) {
      const ThreadPool::BlockingScope blocking;
      const auto isFree = [this]() OMBRIX_REQUIRES(lock_) { return maker_ == std::thread::id(); };
      turnEnded_.wait(lock_, isFree);
    }
    if (made_ < place) make(place, change);
    mustSchedule = settle();
  }
  if (mustSchedule) schedule();
}

void BackgroundWriter::flush() {
  bool mustSchedule = false;
  {
    const LockGuard lock(lock_);
    const std::uint64_t last = newest_;
    if (maker_ == std::this_thread::get_id()) return;
    while (made_ < last) {
      if (waiting_ && maker_ == std::thread::id()) {
        auto [place, change] = *std::exchange(waiting_, std::nullopt);
        make(place, std::move(change));
      } else {
        const ThreadPool::BlockingScope blocking;
        turnEnded_.wait(lock_);
      }
    }
    mustSchedule = settle();
  }
  if (mustSchedule) schedule();
}

}  // namespace ombrix::detail

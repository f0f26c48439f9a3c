#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Concurrency/QuietThread.hpp"
#include "OmbrixPlatform/Defaults/Detail/CallAtExit.hpp"
#include "OmbrixPlatform/Defaults/Detail/UserDefaultsState.hpp"

namespace ombrix::platform {
namespace {

// How long values gather before they are written: long enough to gather several, short beside 50
// ms.
constexpr std::chrono::milliseconds kGatheringDelay{5};
constexpr std::chrono::seconds kFirstRetryDelay{1}, kLongestRetryDelay{60};

}  // namespace

/// Shows a value at once and has the writer write it to the file, even if readers see it already:
/// the file may hold another one by now.
void UserDefaults::State::set(std::string_view key, const std::optional<PropertyList>& value) {
  if (value) DictionaryFile::checkEncodable(key, *value);
  load();
  Coming coming{value, 0};
  change(key, coming);
  if (isProcessExiting() || !coming.hasWriter) take(flush());
}

/// What waits to be written. It stays queued until the file has taken it, for memory may run short.
UserDefaults::State::Batch UserDefaults::State::takeBatch() {
  Batch batch;
  const ForkGate::Pass pass;
  const LockGuard lock(mutex);
  for (const auto& key : queuedKeys) {
    const auto& entry = stored[key];
    batch.edits.push_back({key, entry.value});
    batch.numbers.push_back(entry.edit);
  }
  return batch;
}

/// The file has taken the edits: of the values that are not older than them, it holds the last.
void UserDefaults::State::settle(const Batch& batch, const DictionaryFile::Outcome& outcome) {
  std::uint64_t last = 0;
  for (const auto& change : outcome.changes) last = std::max(last, change.sequence);
  const ForkGate::Pass pass;
  const LockGuard lock(mutex);
  for (std::size_t i = 0; i < batch.edits.size(); ++i) {
    auto& entry = stored[batch.edits[i].key];
    entry.sequence = std::max(entry.sequence, last);
    if (entry.edit != batch.numbers[i]) continue;  // it was set since
    entry.edit = 0;
    entry.isQueued = false;
  }
  std::erase_if(queuedKeys, [this](const std::string& key)
                                OMBRIX_REQUIRES(mutex) { return !stored[key].isQueued; });
}

/// Writes the new values to the file, on this thread; returns what it found on the way.
DictionaryFile::Outcome UserDefaults::State::flush() {
  const LockGuard writing(writeMutex);
  const Batch batch = takeBatch();
  if (batch.edits.empty() && file.isSaved()) return {};
  auto outcome = file.write(batch.edits);
  if (outcome.isTaken) settle(batch, outcome);
  return outcome;
}

/// At the end of the process or of this object: there is no later time to try again.
void UserDefaults::State::flushLast() {
  constexpr int kAttempts = 3;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    try {
      const auto outcome = flush();
      report(outcome.errors);
      if (outcome.isTaken) return;
    } catch (const std::bad_alloc&) {
    }
  }
}

/// A forked child has neither writer nor watch, for threads do not come along, and locks may be
/// held. What the writer had left to do stays with the parent.
void UserDefaults::State::enterChild() {
  isForked = isForked || writer.joinable();
  std::construct_at(&writer);  // the old one can be neither joined nor destroyed
  std::construct_at(&somethingToWrite);
  for (auto* lock : {&mutex, &loadMutex, &writeMutex, &watchMutex}) std::construct_at(lock);
  for (auto& [key, entry] : stored) {
    entry.isQueued = false;
    entry.edit = 0;
    entry.coming = nullptr;
  }
  queuedKeys.clear();
  isFlushedAtExit = isWatched = refreshIsDue = false;
}

/// Whether there is a writer; starts it if possible.
bool UserDefaults::State::hasWriterHere() {
  if (isForked || writer.joinable()) return !isForked;
  if (!std::exchange(isFlushedAtExit, true)) {
    detail::callAtExit<State, &State::flushLast>(weak_from_this());
  }
  writer = startQuietThread("ombrix-defaults", [self = shared_from_this()] { self->write(); });
  return writer.joinable();
}

/// Whether the file has taken what was set. Has observers told on the queue: one of them may end
/// this very object.
/// @param showsAll For want of memory, something that was found may not have been shown.
bool UserDefaults::State::writeNow(bool showsAll) {
  auto outcome = flush();
  const bool isTaken = outcome.isTaken;
  report(std::exchange(outcome.errors, {}));
  if (showsAll || std::ranges::any_of(outcome.changes, &DictionaryFile::Change::isExternal)) {
    makeQueue();
    queue->async([weak = weakOwner, showsAll, outcome = std::move(outcome)] {
      const auto self = weak.lock();
      if (!self) return;
      showsAll ? self->state_->showAll() : self->state_->take(outcome);
    });
  }
  return isTaken;
}

/// On the writer's thread.
void UserDefaults::State::write() {
  auto retryDelay = kFirstRetryDelay;
  bool isSaved = true, isShortOfMemory = false;
  UniqueLock lock(mutex);
  const auto hasWork = [this]()
                           OMBRIX_REQUIRES(mutex) { return isStopping || !queuedKeys.empty(); };
  const auto hasToStop = [this]() OMBRIX_REQUIRES(mutex) { return isStopping; };
  while (!isStopping) {
    if (isShortOfMemory) {  // what is queued must not end the delay
      somethingToWrite.wait_for(mutex, retryDelay, hasToStop);
      retryDelay = std::min(retryDelay * 2, kLongestRetryDelay);
    } else if (isSaved) {
      somethingToWrite.wait(mutex, hasWork);
      retryDelay = kFirstRetryDelay;
    } else {
      somethingToWrite.wait_for(mutex, retryDelay, hasWork);
      retryDelay = std::min(retryDelay * 2, kLongestRetryDelay);
    }
    somethingToWrite.wait_for(mutex, kGatheringDelay, hasToStop);
    if (isStopping) return;
    lock.unlock();
    try {
      isShortOfMemory = !writeNow(isShortOfMemory);
    } catch (const std::bad_alloc&) {
      isShortOfMemory = true;
    }
    isSaved = file.isSaved();
    lock.lock();
  }
}

void UserDefaults::State::stopWriter() {
  std::thread ended;
  {
    const ForkGate::Pass pass;
    const LockGuard lock(mutex);
    isStopping = true;
    ended.swap(writer);
  }
  somethingToWrite.notify_one();
  if (ended.get_id() == std::this_thread::get_id()) {
    ended.detach();  // an error handler dropped the last reference
  } else if (ended.joinable()) {
    ended.join();
  }
  flushLast();
}

}  // namespace ombrix::platform

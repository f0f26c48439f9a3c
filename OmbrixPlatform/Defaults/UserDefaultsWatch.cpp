#include <utility>

#include "OmbrixPlatform/Defaults/Detail/UserDefaultsState.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using Look = DictionaryFile::Look;

}  // namespace

void UserDefaults::State::makeQueue() {
  const LockGuard lock(watchMutex);
  if (queue) return;
  queue = DispatchQueue::serial(path.stem().string() + ".defaults", QualityOfService::utility);
}

ObservationToken UserDefaults::State::watchFolderOf(const fs::path& watched) {
  return FolderWatcher::shared().watch(watched.parent_path(),
                                       [weak = weakOwner, watched](const FolderChange& change) {
                                         if (const auto self = weak.lock())
                                           self->state_->noteFolderChange(watched, change);
                                       });
}

void UserDefaults::State::watch() {
  if (isWatched.load(std::memory_order_acquire)) return;
  makeQueue();
  std::string failure;
  {
    const LockGuard lock(watchMutex);
    if (watchToken) return;
    try {
      watchToken = watchFolderOf(path);
    } catch (const Error& error) {
      failure = error.what();
    }
  }
  if (failure.empty()) followLink();
  load();
  // Without a watch each read goes on checking the file, and reports what it finds.
  if (!failure.empty()) return report({failure});
  isWatched.store(true, std::memory_order_release);
  // Takes in changes that came between the last look and the watch; the writer may be waiting for
  // the file.
  const auto outcome = file.refresh(Look::ifFree);
  take(outcome);
  if (outcome.wasBusy) lookLater();
}

/// Watches the target of a symbolic link, too, when the link leads elsewhere than before.
void UserDefaults::State::followLink() {
  const fs::path target = DictionaryFile::target(path);
  ObservationToken ended;  // outside the lock: waits for a running call
  const LockGuard lock(watchMutex);
  if (target == (watchedTarget.empty() ? path : watchedTarget)) return;
  watchedTarget = target;
  try {
    ended = std::exchange(linkToken, target == path ? ObservationToken() : watchFolderOf(target));
  } catch (const Error&) {
    isWatched.store(false);  // Each read looks again.
  }
}

/// On the events thread.
void UserDefaults::State::noteFolderChange(const fs::path& watched, const FolderChange& change) {
  using enum FolderChange::Kind;
  if (change.kind != lookAgain && change.name != watched.filename().native()) return;
  // Our writers rename; but a file that was written in place may look as before.
  if (change.kind == written) contentsAreSuspect.store(true);
  lookLater();
}

/// Has the queue look at the file.
void UserDefaults::State::lookLater() {
  if (refreshIsDue.exchange(true)) return;
  queue->async([weak = weakOwner] {
    const auto self = weak.lock();
    if (!self) return;
    auto& state = *self->state_;
    state.refreshIsDue.store(false);
    state.followLink();
    state.refresh(state.contentsAreSuspect.exchange(false) ? Look::inContents : Look::always);
  });
}

}  // namespace ombrix::platform

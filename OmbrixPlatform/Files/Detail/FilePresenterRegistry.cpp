#include "OmbrixPlatform/Files/Detail/FilePresenterRegistry.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <utility>

#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Files/Detail/LastLink.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {

FilePresenterRegistry& FilePresenterRegistry::shared() {
  static FilePresenterRegistry& instance = *new FilePresenterRegistry;
  return instance;
}

FilePresenterRegistry::State FilePresenterRegistry::stateOf(const std::string& path) noexcept {
  struct stat info{};
  if (::lstat(path.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino, info.st_size, info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

/// Sets a file's modification time to one that no write can leave: the kernel's own times are a few
/// milliseconds apart. The result is the state in which the file was found, with that time. If the
/// file has changed meanwhile, the next look at it therefore sees a change.
FilePresenterRegistry::State FilePresenterRegistry::stamp(const std::string& path, State found,
                                                          std::int64_t seconds,
                                                          std::int64_t nanoseconds) noexcept {
  if (found == State{}) return found;
  timespec times[2]{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1] = {.tv_sec = seconds, .tv_nsec = nanoseconds};
  // Refused for a file of another user, which keeps its time.
  if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0) {
    found.seconds = seconds;
    found.nanoseconds = nanoseconds;
  }
  return found;
}

void FilePresenterRegistry::enterChild() {
  std::construct_at(&mutex_);  // a thread of the parent may have been at it
  std::construct_at(&items_);
  count_ = 0;
}

void FilePresenterRegistry::add(const std::shared_ptr<NSFilePresenter>& presenter) {
  const auto url = presenter->presentedItemURL();
  if (!url) return;
  const std::string path = coordinatedPath(url->path());
  const auto slash = path.find_last_of('/');
  const std::string folder = path.substr(0, slash == 0 ? 1 : slash);
  const std::string name = path.substr(slash + 1);

  // The watch begins before the first look; it is ended outside the lock, which its handler takes.
  ObservationToken watch =
      FolderWatcher::shared().watch(folder, [this, path, name](const FolderChange& change) {
        const bool isAny = change.kind == FolderChange::Kind::lookAgain;
        if (isAny || change.name == name) noticed(path, !isAny);
      });
  const LockGuard lock(mutex_);
  Item& item = items_[path];
  std::erase_if(item.presenters, [](const auto& other) { return other.expired(); });
  item.presenters.push_back(presenter);
  if (!item.watch) {
    item.watch = std::move(watch);
    item.known = stateOf(path);
  }
  count_ = items_.size();
}

void FilePresenterRegistry::remove(const std::shared_ptr<NSFilePresenter>& presenter) {
  std::vector<Item> unused;
  const LockGuard lock(mutex_);
  for (auto item = items_.begin(); item != items_.end();) {
    std::erase_if(item->second.presenters, [&](const auto& other) {
      const bool isOther = other.owner_before(presenter) || presenter.owner_before(other);
      return !isOther || other.expired();
    });
    removeIfUnused(item++, unused);
  }
}

/// Takes an item that is not needed any more out of the table; the caller ends its watch outside
/// the lock, which the watch's handler takes.
void FilePresenterRegistry::removeIfUnused(Items::iterator item, std::vector<Item>& unused) {
  if (!item->second.presenters.empty() || item->second.writers > 0) return;
  unused.push_back(std::move(item->second));
  items_.erase(item);
  count_ = items_.size();
}

FilePresenterRegistry::Told FilePresenterRegistry::presentersOf(const Item& item) {
  Told told;
  for (const auto& presenter : item.presenters) {
    if (auto held = presenter.lock()) told.push_back(std::move(held));
  }
  return told;
}

void FilePresenterRegistry::tell(const Told& presenters, const NSFilePresenter* writer) {
  for (const auto& presenter : presenters) {
    if (writer != nullptr && writer->represents(*presenter)) continue;
    auto call = [weak = std::weak_ptr(presenter)] {
      if (const auto held = weak.lock()) held->presentedItemDidChange();
    };
    if (const auto queue = presenter->presentedItemOperationQueue()) {
      queue->addOperation(std::move(call));
    } else {
      ThreadPool::shared().post(std::move(call));
    }
  }
}

/// A folder event, on the events thread. An uncertain one counts if the file has changed.
void FilePresenterRegistry::noticed(const std::string& path, bool isCertain) {
  Told told;
  {
    const LockGuard lock(mutex_);
    const auto found = items_.find(path);
    if (found == items_.end()) return;
    Item& item = found->second;
    // While this process has exclusive access, the change is its own; the end of the access looks
    // at the file.
    if (item.writers > 0) return;
    const State now = stateOf(path);
    if (now == item.known && (item.isKnownOwn || !isCertain)) return;
    item.known = now;
    item.isKnownOwn = false;
    told = presentersOf(item);
  }
  tell(told);
}

void FilePresenterRegistry::writeBegins(const std::string& path) {
  if (count_ == 0) return;
  Told told;
  {
    const LockGuard lock(mutex_);
    const auto found = items_.find(path);
    if (found == items_.end()) return;
    Item& item = found->second;
    if (item.writers++ > 0) return;
    // This is another process's write whose event has not arrived yet: after our write it would go
    // unnoticed.
    const State now = stateOf(path);
    if (now != item.known) told = presentersOf(item);
    // A nanosecond off, so that the next write shows even with the same size and within the same
    // tick.
    item.known = stamp(path, now, now.seconds, now.nanoseconds ^ 1);
    item.isKnownOwn = true;
  }
  tell(told);
}

void FilePresenterRegistry::writeEnds(const std::string& path, const NSFilePresenter* writer) {
  if (count_ == 0) return;
  std::vector<Item> unused;
  Told told;
  {
    const LockGuard lock(mutex_);
    const auto found = items_.find(path);
    if (found == items_.end()) return;
    Item& item = found->second;
    const bool hasBegun = item.writers > 0;  // otherwise the first presenter came during the write
    if (hasBegun) --item.writers;
    const State now = stateOf(path);
    if (now != item.known || !hasBegun) {
      timespec time{};
      ::clock_gettime(CLOCK_REALTIME, &time);
      item.known = stamp(path, now, time.tv_sec, time.tv_nsec);
      item.isKnownOwn = true;
      told = presentersOf(item);
    }
    std::erase_if(item.presenters, [](const auto& other) { return other.expired(); });
    removeIfUnused(found, unused);
  }
  tell(told, writer);
}

std::string coordinatedPath(std::string path) {
  if (char* const whole = ::realpath(path.c_str(), nullptr); whole != nullptr) {
    const std::string resolved(whole);
    std::free(whole);
    return resolved;
  }
  static_cast<void>(followLastLink(path));  // a link whose target does not exist yet
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  const auto slash = path.find_last_of('/');
  if (slash == std::string::npos || path.size() == 1) return path;
  std::string name = path.substr(slash + 1);
  const bool isName = name != "." && name != "..";
  std::string folder = isName ? path.substr(0, slash) : path;
  if (folder.empty()) folder = "/";
  char* const resolved = ::realpath(folder.c_str(), nullptr);
  std::string base = resolved != nullptr ? resolved : isName ? coordinatedPath(folder) : folder;
  std::free(resolved);
  if (!isName) return base;
  if (!base.ends_with('/')) base += '/';
  return base + name;
}

}  // namespace ombrix::platform::detail

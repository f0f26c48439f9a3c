#include "OmbrixPlatform/Files/Detail/FilePresenterRegistry.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <utility>

#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

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

/// Makes the state after an own write one that no other write can leave: the kernel's own
/// modification times are a few milliseconds apart.
FilePresenterRegistry::State FilePresenterRegistry::stamp(const std::string& path) noexcept {
  timespec times[2]{};
  times[0].tv_nsec = UTIME_OMIT;
  ::clock_gettime(CLOCK_REALTIME, &times[1]);
  ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
  return stateOf(path);
}

void FilePresenterRegistry::add(const std::shared_ptr<NSFilePresenter>& presenter) {
  const auto url = presenter->presentedItemURL();
  if (!url) return;
  const std::string path = coordinatedPath(url->path());
  const auto slash = path.find_last_of('/');
  const std::string folder = path.substr(0, slash == 0 ? 1 : slash);
  const std::string name = path.substr(slash + 1);

  // Watched before it is looked at; the watch is let go outside the lock, which its handler takes.
  ObservationToken watch =
      FolderWatcher::shared().watch(folder, [this, path, name](const FolderChange& change) {
        const bool isAny = change.kind == FolderChange::Kind::lookAgain;
        if (isAny || change.name == name) noticed(path, !isAny);
      });
  const std::lock_guard lock(mutex_);
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
  std::vector<Item> unused;  // ended after the lock, which their handlers take
  const std::lock_guard lock(mutex_);
  for (auto item = items_.begin(); item != items_.end();) {
    std::erase_if(item->second.presenters, [&](const auto& other) {
      const bool isOther = other.owner_before(presenter) || presenter.owner_before(other);
      return !isOther || other.expired();
    });
    if (item->second.presenters.empty() && item->second.writers == 0) {
      unused.push_back(std::move(item->second));
      item = items_.erase(item);
    } else {
      ++item;
    }
  }
  count_ = items_.size();
}

FilePresenterRegistry::Told FilePresenterRegistry::presentersOf(const Item& item,
                                                                const NSFilePresenter* except) {
  Told told;
  for (const auto& presenter : item.presenters) {
    auto held = presenter.lock();
    if (held && held.get() != except) told.push_back(std::move(held));
  }
  return told;
}

void FilePresenterRegistry::tell(const Told& presenters) {
  for (const auto& presenter : presenters) {
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
    const std::lock_guard lock(mutex_);
    const auto found = items_.find(path);
    if (found == items_.end()) return;
    Item& item = found->second;
    // While this process has exclusive access the change is its own; the end looks at the file.
    if (item.writers > 0) return;
    const State now = stateOf(path);
    if (now == item.known && (item.isKnownOwn || !isCertain)) return;
    item.known = now;
    item.isKnownOwn = false;
    told = presentersOf(item, nullptr);
  }
  tell(told);
}

void FilePresenterRegistry::writeBegins(const std::string& path) {
  if (count_ == 0) return;
  Told told;
  {
    const std::lock_guard lock(mutex_);
    const auto found = items_.find(path);
    if (found == items_.end()) return;
    Item& item = found->second;
    if (item.writers++ > 0) return;
    // Somebody else's write whose event has not arrived yet: after ours nobody could tell.
    const State now = stateOf(path);
    if (now == item.known) return;
    item.known = now;
    told = presentersOf(item, nullptr);
  }
  tell(told);
}

void FilePresenterRegistry::writeEnds(const std::string& path, const NSFilePresenter* writer) {
  if (count_ == 0) return;
  Told told;
  {
    const std::lock_guard lock(mutex_);
    const auto found = items_.find(path);
    if (found == items_.end()) return;
    Item& item = found->second;
    if (item.writers > 0) --item.writers;  // 0 where the first presenter came during the write
    if (stateOf(path) != item.known) {
      item.known = stamp(path);
      item.isKnownOwn = true;
    }
    told = presentersOf(item, writer);
  }
  tell(told);
}

std::string coordinatedPath(std::string path) {
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

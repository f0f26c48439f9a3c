#include "OmbrixCore/Data/Stores/DataFileStore.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Files/LockWait.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix {
namespace {

using platform::Data;
using platform::FileContents;
using platform::FileError;
using platform::FileResult;
using platform::FutexLock;
using platform::LastLink;
using platform::NSFileCoordinator;
using platform::URL;

const FileManager& files() { return FileManager::defaultManager(); }

/// Keeps the threads of this process away from each other's half-written files, coordinated or not:
/// two writers in place would leave a mixture, and a reader would take a half-written file for a
/// broken one. The lock is chosen by the file's name alone, which is the same however its folder is
/// spelled and whatever links lead there; a name that is itself a link is followed first. Files
/// that share a lock share it for system calls only, none of which waits for another process.
FutexLock& lockOf(const URL& url) {
  constexpr std::size_t kLocks = 64;
  static constinit std::array<FutexLock, kLocks> locks;
  // Threads that hold one of them during a fork do not come along.
  [[maybe_unused]] static const auto& onFork = *new platform::ForkHandler([] {
    for (FutexLock& lock : locks) std::construct_at(&lock);
  });
  return locks[std::hash<std::string>{}(url.lastPathComponent()) % kLocks];
}

std::atomic<std::uint64_t> sizeLimit{DataFileStore::kUsualSizeLimitBytes};

std::shared_ptr<const NSFileCoordinator> coordinatorFor(
    std::shared_ptr<platform::NSFilePresenter> presenter) {
  return std::make_shared<const NSFileCoordinator>(std::move(presenter), files().groupContainer());
}

}  // namespace

bool detail::isInGroupContainer(const URL& url) {
  const auto container = files().groupContainer();
  return container && url.path().starts_with(container->path());
}

DataFileStore::DataFileStore(URL url) : fileURL_(std::move(url)), lock_(lockOf(fileURL_)) {
  if (detail::isInGroupContainer(fileURL_)) coordinator_ = coordinatorFor(nullptr);
}

void DataFileStore::setFilePresenter(std::shared_ptr<platform::NSFilePresenter> filePresenter) {
  filePresenter_ = std::move(filePresenter);
  if (detail::isInGroupContainer(fileURL_)) coordinator_ = coordinatorFor(filePresenter_);
}

/// Runs an operation, which refuses links with ELOOP, on the file that the path leads to, while no
/// other thread of this process uses that file.
template <class Operation>
auto DataFileStore::onFile(const URL& url, Operation operation) const {
  {
    const platform::LockGuard lock(lock_);
    auto result = operation(url);
    if (result || result.error().code() != ELOOP) return result;
  }
  const auto file = files().resolvingLastLink(url);
  if (!file) return decltype(operation(url))(std::unexpected(file.error()));
  const platform::LockGuard lock(lockOf(*file));
  return operation(*file);
}

std::uint64_t DataFileStore::sizeLimitBytes() noexcept { return sizeLimit; }

void DataFileStore::setSizeLimitBytes(std::uint64_t bytes) noexcept { sizeLimit = bytes; }

std::optional<Data> DataFileStore::value() const {
  auto found = contents();
  if (!found) return std::nullopt;
  return std::move(found->bytes);
}

FileResult<FileContents> DataFileStore::contents() const {
  FileResult<FileContents> found;
  if (coordinator_) {
    const auto access =
        coordinator_->coordinateReadingItemAtURL(fileURL_, NSFileCoordinator::ReadingOptions::none,
                                                 [&](const URL& url) { found = doRead(url); });
    if (!access) {
      detail::logItemStore("value", "Error reading the object: ", access.error());
      return std::unexpected(access.error());
    }
  } else {
    found = doRead(fileURL_);
  }
  if (!found) detail::logItemStore("doRead(url:)", "Error reading the object: ", found.error());
  return found;
}

void DataFileStore::setValue(const std::optional<Data>& value) const {
  if (!value) {
    purge();
    return;
  }
  Saved saved;
  // The time for waiting for the file's access and for a removal, together.
  const auto deadline = std::chrono::steady_clock::now() + platform::detail::kLockTimeout;
  if (coordinator_) {
    const auto access = coordinator_->coordinateWritingItemAtURL(
        fileURL_, NSFileCoordinator::WritingOptions::forMerging,
        [&](const URL& url) { saved = doSave(url, *value, deadline); });
    if (!access) detail::logItemStore("value", "Error saving the object: ", access.error());
  } else {
    saved = doSave(fileURL_, *value, deadline);
  }
  if (!saved.folder) FileManager::logTouchFailure(saved.folder.error());
  if (!saved.file) {
    // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
    detail::logItemStore("doSave(url:value:)",
                         "Data: Error saving data to file for in store: ", saved.file.error());
  }
}

bool DataFileStore::exists() const { return files().fileExists(fileURL_); }

std::uint64_t DataFileStore::size() const {
  const auto file = files().resolvingLastLink(fileURL_);
  return file ? files().allocatedSize(*file).value_or(0) : 0;
}

void DataFileStore::purge() const {
  purgeBy([this](const URL& url) { return doPurge(url); });
}

bool DataFileStore::purge(const FileContents& contents) const {
  bool isChanged = false;
  purgeBy([&](const URL& url) -> FileResult<void> {
    auto removed =
        onFile(url, [&](const URL& file) { return files().removeUnchanged(file, contents); });
    if (!removed) return std::unexpected(std::move(removed).error());
    isChanged = !*removed;
    return {};
  });
  return !isChanged;
}

void DataFileStore::purgeBy(const std::function<FileResult<void>(const URL&)>& remove) const {
  FileResult<void> removed;
  if (coordinator_) {
    const auto access = coordinator_->coordinateWritingItemAtURL(
        fileURL_, NSFileCoordinator::WritingOptions::forDeleting,
        [&](const URL& url) { removed = remove(url); });
    if (!access) detail::logItemStore("purge()", "Error purging the object: ", access.error());
  } else {
    removed = remove(fileURL_);
  }
  if (!removed && !removed.error().isNoSuchFile()) {
    detail::logItemStore("doPurge(url:)", "Error writing the object: ", removed.error());
  }
}

FileResult<FileContents> DataFileStore::doRead(const URL& url) const {
  return onFile(url, [](const URL& file) {
    return files().regularContents(file, sizeLimit, LastLink::refused);
  });
}

DataFileStore::Saved DataFileStore::doSave(const URL& url, platform::DataView value,
                                           Deadline deadline) const {
  if (value.size() > sizeLimit) {
    return {{}, std::unexpected(FileError(EFBIG, "write", url.path()))};
  }
  // Kept: an existing file is written in place, so a writer that is killed loses the old value;
  // replacing the file instead would break what others hold open and cost 20 times as much.
  const auto create = [&] {
    return onFile(
        url, [&](const URL& file) { return files().createFile(file, value, LastLink::refused); });
  };
  const auto save = [&] {
    auto saved = create();
    // A reader of another process is removing the file as broken, or was stopped while doing so.
    // The wait for it happens without the lock, which other files share.
    while (!saved && saved.error().code() == EAGAIN &&
           std::chrono::steady_clock::now() < deadline) {
      const platform::ThreadPool::BlockingScope blocking;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      saved = create();
    }
    return saved;
  };
  Saved saved{{}, save()};
  if (saved.file || !saved.file.error().isNoSuchFile()) return saved;
  // The folder is usually there, so it is only made when it seems to be missing.
  saved.folder = files().touchQuietly(url);
  saved.file = save();
  return saved;
}

FileResult<void> DataFileStore::doPurge(const URL& url) const {
  const auto file = files().resolvingLastLink(url);
  if (!file) return std::unexpected(file.error());
  const platform::LockGuard lock(lockOf(*file));
  return files().removeItem(*file);
}

}  // namespace ombrix

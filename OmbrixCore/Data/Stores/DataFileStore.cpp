#include "OmbrixCore/Data/Stores/DataFileStore.hpp"

#include <array>
#include <mutex>
#include <string>
#include <utility>

#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"

namespace ombrix {
namespace {

using platform::Data;
using platform::FileResult;
using platform::FutexLock;
using platform::NSFileCoordinator;
using platform::URL;

const FileManager& files() { return FileManager::defaultManager(); }

/// Keeps the threads of this process off each other's half-written files, coordinated or not: two
/// writers in place would leave a mixture, and a reader in between would take the file for a broken
/// one. The lock goes by the file's name alone, which is the same however the way to it is spelled
/// and whatever links lie on it. Files that share a lock share it for system calls only.
FutexLock& lockOf(const URL& url) {
  constexpr std::size_t kLocks = 64;
  static constinit std::array<FutexLock, kLocks> locks;
  return locks[std::hash<std::string>{}(url.lastPathComponent()) % kLocks];
}

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

std::optional<Data> DataFileStore::value() const {
  FileResult<Data> bytes;
  if (coordinator_) {
    const auto access =
        coordinator_->coordinateReadingItemAtURL(fileURL_, NSFileCoordinator::ReadingOptions::none,
                                                 [&](const URL& url) { bytes = doRead(url); });
    if (!access) {
      detail::logItemStore("value", "Error reading the object: ", access.error());
      return std::nullopt;
    }
  } else {
    bytes = doRead(fileURL_);
  }
  if (bytes) return *std::move(bytes);
  detail::logItemStore("doRead(url:)", "Error reading the object: ", bytes.error());
  return std::nullopt;
}

void DataFileStore::setValue(const std::optional<Data>& value) const {
  if (!value) {
    purge();
    return;
  }
  FileResult<void> saved;
  if (coordinator_) {
    const auto access = coordinator_->coordinateWritingItemAtURL(
        fileURL_, NSFileCoordinator::WritingOptions::forMerging,
        [&](const URL& url) { saved = doSave(url, *value); });
    if (!access) detail::logItemStore("value", "Error saving the object: ", access.error());
  } else {
    saved = doSave(fileURL_, *value);
  }
  if (!saved) {
    // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
    detail::logItemStore("doSave(url:value:)",
                         "Data: Error saving data to file for in store: ", saved.error());
  }
}

bool DataFileStore::exists() const { return files().fileExists(fileURL_); }

std::uint64_t DataFileStore::size() const { return files().allocatedSize(fileURL_).value_or(0); }

void DataFileStore::purge() const {
  FileResult<void> removed;
  if (coordinator_) {
    const auto access = coordinator_->coordinateWritingItemAtURL(
        fileURL_, NSFileCoordinator::WritingOptions::forDeleting,
        [&](const URL& url) { removed = doPurge(url); });
    if (!access) detail::logItemStore("purge()", "Error purging the object: ", access.error());
  } else {
    removed = doPurge(fileURL_);
  }
  if (!removed && !removed.error().isNoSuchFile()) {
    detail::logItemStore("doPurge(url:)", "Error writing the object: ", removed.error());
  }
}

FileResult<Data> DataFileStore::doRead(const URL& url) const {
  const std::lock_guard lock(lock_);
  return files().contents(url);
}

FileResult<void> DataFileStore::doSave(const URL& url, platform::DataView value) const {
  files().touch(url);
  // Kept: an existing file is written in place, so a writer that is killed loses the old value;
  // replacing the file instead would break what others hold open and cost 20 times as much.
  const std::lock_guard lock(lock_);
  return files().createFile(url, value);
}

FileResult<void> DataFileStore::doPurge(const URL& url) const {
  const std::lock_guard lock(lock_);
  return files().removeItem(url);
}

}  // namespace ombrix

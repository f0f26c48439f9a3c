#include "OmbrixCore/Data/Stores/DataFileStore.hpp"

#include <array>
#include <mutex>
#include <string>
#include <utility>

#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixPlatform/Concurrency/FutexLock.hpp"

namespace ombrix {
namespace {

using platform::Data;
using platform::FutexLock;
using platform::NSFileCoordinator;
using platform::URL;

const FileManager& files() { return FileManager::defaultManager(); }

/// Keeps the threads of this process off each other's half-written files, coordinated or not: two
/// writers in place would leave a mixture, and a reader in between would take the file for a broken
/// one. Files of the same hash share a lock, which is only held for system calls.
FutexLock& lockOf(std::size_t hash) noexcept {
  constexpr std::size_t kLocks = 64;
  static constinit std::array<FutexLock, kLocks> locks;
  return locks[hash % kLocks];
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

DataFileStore::DataFileStore(URL url)
    : fileURL_(std::move(url)), hash_(std::hash<URL>{}(fileURL_)) {
  if (detail::isInGroupContainer(fileURL_)) coordinator_ = coordinatorFor(nullptr);
}

void DataFileStore::setFilePresenter(std::shared_ptr<platform::NSFilePresenter> filePresenter) {
  filePresenter_ = std::move(filePresenter);
  if (detail::isInGroupContainer(fileURL_)) coordinator_ = coordinatorFor(filePresenter_);
}

std::optional<Data> DataFileStore::value() const {
  if (!coordinator_) return doRead(fileURL_);
  std::optional<Data> bytes;
  const auto access =
      coordinator_->coordinateReadingItemAtURL(fileURL_, NSFileCoordinator::ReadingOptions::none,
                                               [&](const URL& url) { bytes = doRead(url); });
  if (!access) detail::logItemStore("value", "Error reading the object: ", access.error());
  return bytes;
}

void DataFileStore::setValue(const std::optional<Data>& value) const {
  if (!value) {
    purge();
    return;
  }
  if (!coordinator_) {
    doSave(fileURL_, *value);
    return;
  }
  const auto access = coordinator_->coordinateWritingItemAtURL(
      fileURL_, NSFileCoordinator::WritingOptions::forMerging,
      [&](const URL& url) { doSave(url, *value); });
  if (!access) detail::logItemStore("value", "Error saving the object: ", access.error());
}

bool DataFileStore::exists() const { return files().fileExists(fileURL_); }

std::uint64_t DataFileStore::size() const { return files().allocatedSize(fileURL_).value_or(0); }

void DataFileStore::purge() const {
  if (!coordinator_) {
    doPurge(fileURL_);
    return;
  }
  const auto access = coordinator_->coordinateWritingItemAtURL(
      fileURL_, NSFileCoordinator::WritingOptions::forDeleting,
      [&](const URL& url) { doPurge(url); });
  if (!access) detail::logItemStore("purge()", "Error purging the object: ", access.error());
}

std::optional<Data> DataFileStore::doRead(const URL& url) const {
  auto bytes = [&] {
    const std::lock_guard lock(lockOf(hash_));
    return files().contents(url);
  }();
  if (bytes) return *std::move(bytes);
  detail::logItemStore("doRead(url:)", "Error reading the object: ", bytes.error());
  return std::nullopt;
}

void DataFileStore::doSave(const URL& url, platform::DataView value) const {
  files().touch(url);
  // Kept: an existing file is written in place, so a writer that is killed loses the old value;
  // replacing the file instead would break what others hold open and cost 20 times as much.
  const auto saved = [&] {
    const std::lock_guard lock(lockOf(hash_));
    return files().createFile(url, value);
  }();
  if (!saved) {
    // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
    detail::logItemStore("doSave(url:value:)",
                         "Data: Error saving data to file for in store: ", saved.error());
  }
}

void DataFileStore::doPurge(const URL& url) const {
  const auto removed = [&] {
    const std::lock_guard lock(lockOf(hash_));
    return files().removeItem(url);
  }();
  if (!removed && !removed.error().isNoSuchFile()) {
    detail::logItemStore("doPurge(url:)", "Error writing the object: ", removed.error());
  }
}

}  // namespace ombrix

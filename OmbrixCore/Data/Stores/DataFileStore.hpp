#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "OmbrixCore/Data/Stores/ItemStore.hpp"
#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Files/NSFileCoordinator.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix {

namespace detail {

/// Whether a file is shared with the other programs of the app group.
// Kept: the paths are compared character by character, so "…/group-2/file" counts as being in
// "…/group"; comparing whole components would leave files without coordination that had it.
bool isInGroupContainer(const platform::URL& url);

}  // namespace detail

/// Raw bytes in one file, in the app-group container coordinated with other processes.
///
/// Failures are logged when the file is free again. A path that is a symbolic link stands for the
/// file that it leads to. A writer that is killed leaves a file that begins with a zero byte,
/// whatever the value; its other bytes are undefined. Any thread; this process's operations on one
/// file exclude each other.
class DataFileStore final {
 public:
  using StoredItem = platform::Data;

  explicit DataFileStore(platform::URL url);
  DataFileStore(const DataFileStore&) = delete;
  DataFileStore& operator=(const DataFileStore&) = delete;

  [[nodiscard]] const platform::URL& fileURL() const noexcept { return fileURL_; }

  static constexpr std::uint64_t kUsualSizeLimitBytes = std::uint64_t{1} << 30;

  /// How many bytes a file of any store may hold: larger ones are neither read nor written, and
  /// never removed for that. Usually `kUsualSizeLimitBytes`.
  [[nodiscard]] static std::uint64_t sizeLimitBytes() noexcept;
  static void setSizeLimitBytes(std::uint64_t bytes) noexcept;

  /// Reads the whole file. A file that is missing, unreadable, not regular, too large or does not
  /// fit in memory is logged and gives nothing.
  [[nodiscard]] std::optional<platform::Data> value() const;

  /// The same, with the identity that tells the file from a later one of its name, or with the
  /// error that was logged.
  [[nodiscard]] platform::FileResult<platform::FileContents> contents() const;

  /// Writes the file, and makes its folder if necessary; without a value it removes the file. If
  /// there is no room for a longer value, the old one stays.
  void setValue(const std::optional<platform::Data>& value) const;

  [[nodiscard]] bool exists() const;

  /// The disk space of the file; 0 when it is missing.
  [[nodiscard]] std::uint64_t size() const;

  /// Removes the file, if it is there.
  void purge() const;

  /// Removes the file unless it was replaced or written since these contents were read.
  /// @return False when it was replaced or written: then a read may give something better.
  [[nodiscard]] bool purge(const platform::FileContents& contents) const;

  /// The presenter that is not told of this store's own writes. Set it before the store is shared.
  [[nodiscard]] const std::shared_ptr<platform::NSFilePresenter>& filePresenter() const noexcept {
    return filePresenter_;
  }
  void setFilePresenter(std::shared_ptr<platform::NSFilePresenter> filePresenter);

  /// Coordinates reads, writes and removals; null outside the group container.
  [[nodiscard]] const std::shared_ptr<const platform::NSFileCoordinator>& coordinator()
      const noexcept {
    return coordinator_;
  }

 private:
  struct Saved {
    platform::FileResult<void> folder, file;
  };

  [[nodiscard]] platform::FileResult<platform::FileContents> doRead(const platform::URL& url) const;
  using Deadline = std::chrono::steady_clock::time_point;

  [[nodiscard]] Saved doSave(const platform::URL& url, platform::DataView value,
                             Deadline deadline) const;
  [[nodiscard]] platform::FileResult<void> doPurge(const platform::URL& url) const;
  template <class Operation>
  auto onFile(const platform::URL& url, Operation operation) const;
  void purgeBy(const std::function<platform::FileResult<void>(const platform::URL&)>& remove) const;

  const platform::URL fileURL_;
  platform::FutexLock& lock_;  // of the path itself; for a link that of its target is used
  std::shared_ptr<platform::NSFilePresenter> filePresenter_;
  std::shared_ptr<const platform::NSFileCoordinator> coordinator_;
};

static_assert(ItemStore<DataFileStore>);

}  // namespace ombrix

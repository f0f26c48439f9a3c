#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Data/Stores/KeyedItemStore.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix {

template <class T>
class PlistKeyedItemStore;

/// Keeps raw bytes, one file per key in one folder. See `KeyedItemStore`.
///
/// A key's file is named by `sanitizedFileName`: keys that differ only in what that removes share
/// their file, and `keys()` gives the names, not the keys as they were. The disk is never touched
/// on the main queue.
class DataKeyedItemStore final {
 public:
  using StoredItem = platform::Data;

  /// @param baseDirectory The folder, made on the first write.
  /// @param fileExtension Of every file, without ".".
  // Kept: the limit is remembered and nothing more; only `purgeOldest` evicts. Enforcing it would
  // list the folder on every write.
  DataKeyedItemStore(platform::URL baseDirectory, std::string fileExtension,
                     std::optional<std::int64_t> sizeLimit = std::nullopt);

  [[nodiscard]] const platform::URL& baseDirectory() const noexcept;
  [[nodiscard]] const std::string& fileExtension() const noexcept;
  [[nodiscard]] std::optional<std::int64_t> sizeLimit() const noexcept;

  /// The file of a key, which need not exist. A key of which nothing is left gives a hidden file
  /// that `keys()` leaves out.
  [[nodiscard]] platform::URL path(std::string_view key) const;

  [[nodiscard]] platform::Async<std::optional<platform::Data>> value(std::string key) const;
  [[nodiscard]] platform::Async<void> store(std::optional<platform::Data> value,
                                            std::string key) const;
  [[nodiscard]] platform::Async<bool> exists(std::string key) const;

  /// Seconds since the file was last written.
  [[nodiscard]] platform::Async<std::optional<double>> age(std::string key) const;

  // Kept: the names of the files, as far as they were sanitised; what was removed from a key is
  // written nowhere. Keeping the keys would take an index that files of earlier runs are not in.
  [[nodiscard]] platform::Async<std::vector<std::string>> keys() const;

  /// The disk space of the folder's files, whoever wrote them; 0 without a folder.
  [[nodiscard]] platform::Async<std::uint64_t> size() const;

  // Kept: only a key that was read or written through this store object is removed; a file of an
  // earlier run stays until then. Callers rely on a purge never touching files they have not
  // opened.
  [[nodiscard]] platform::Async<void> purge(std::string key) const;

  /// Removes the folder with everything in it; one that is a link goes where it leads, and the link
  /// stays.
  // Kept: the opened files stay known, so a later write or purge of such a key goes to its file.
  [[nodiscard]] platform::Async<void> purge() const;

  // Kept: an old file is removed only if a key was opened that is the whole name of the file, with
  // the extension, which is normally none. Looking keys up by file would begin to remove data that
  // callers have counted on so far.
  [[nodiscard]] platform::Async<void> purgeOldest(std::int64_t keeping) const;

 private:
  template <class T>
  friend class PlistKeyedItemStore;

  struct State;

  /// The key's bytes, with what tells its file from one that takes its place.
  [[nodiscard]] platform::Async<std::optional<platform::FileContents>> contents(
      std::string key) const;
  /// Removes the key unless its file was written since; false when it was.
  [[nodiscard]] platform::Async<bool> purge(std::string key, platform::FileContents contents) const;

  std::shared_ptr<State> state_;
};

static_assert(KeyedItemStore<DataKeyedItemStore>);

}  // namespace ombrix

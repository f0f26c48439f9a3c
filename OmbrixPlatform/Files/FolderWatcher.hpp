#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

#include "OmbrixPlatform/Observation/ObservationToken.hpp"

namespace ombrix::platform {

/// One thing that happened to an entry of a watched folder.
struct FolderChange {
  enum class Kind : std::uint8_t {
    written,   ///< the file was open for writing and was closed
    replaced,  ///< a file or folder of that name was made, or moved in over what was there
    removed,   ///< the entry was deleted or moved away
    lookAgain  ///< anything may have changed: the folder came or went, or changes were dropped
  };
  Kind kind;
  std::string_view name;  ///< of the entry; empty for `lookAgain`. Valid during the call.
};

/// Reports changes in folders, by this process and others, through one inotify instance.
///
/// A folder need not exist: it is watched from the moment it is made, also after it was removed
/// and made again, or another folder was moved to its path. Moving one of the folders above it is
/// not noticed. Any thread; nothing (thread, descriptor) exists before the first watch.
class FolderWatcher {
 public:
  using Handler = std::move_only_function<void(const FolderChange& change)>;

  /// The one of the process; never destroyed.
  static FolderWatcher& shared();

  FolderWatcher();
  ~FolderWatcher();
  FolderWatcher(const FolderWatcher&) = delete;
  FolderWatcher& operator=(const FolderWatcher&) = delete;

  /// Calls the handler for every change in the folder itself (not in folders below) until the
  /// token ends. Changes made after this returns are not missed.
  ///
  /// The handler runs on the events thread, changes in order: it must be brief and post longer work
  /// elsewhere. Throws `FileError` when the system has no more watches to give.
  ObservationToken watch(const std::filesystem::path& folder, Handler handler);

 private:
  class Impl;
  const std::shared_ptr<Impl> impl_;
};

}  // namespace ombrix::platform

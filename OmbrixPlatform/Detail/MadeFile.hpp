#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

// Files and folders created here get the owner of their folder: otherwise those that root creates
// in passing would lock users out of their own settings, logs and messages for good. Only root can
// change owners; other users keep what they create.

namespace ombrix::platform::detail {

constexpr mode_t kOwnerOnly = 0600;

/// Creates a file that must not exist yet, by open(2); on failure, `errno` says why (EEXIST).
Descriptor makeFile(const std::string& path, int flags, mode_t mode = kOwnerOnly);

/// The same, but opens the file if it exists; does not follow links.
Descriptor openOrMakeFile(const std::string& path, int flags, mode_t mode = kOwnerOnly);

/// mkdir(2); 0 or errno.
int makeFolder(const std::string& path, mode_t mode = 0777);

/// The path of a hidden file beside another: "a/.name.lock" for "a/name" and ".lock".
std::string hiddenSibling(const std::string& path, std::string_view suffix);

/// A file that is written aside and then renamed over another, so that every reader finds the old
/// contents or all of the new ones. Its hidden name (".name.new") is always the same, so that the
/// next writer removes what a killed one has left: writers of one file must exclude each other.
/// Unless it is published, it is removed in the end.
class FreshFile {
 public:
  /// @param place The file to replace, which need not exist.
  explicit FreshFile(const std::string& place);
  ~FreshFile();
  FreshFile(const FreshFile&) = delete;
  FreshFile& operator=(const FreshFile&) = delete;

  /// Whether the hidden file could be made; if not, `errno` says why.
  explicit operator bool() const noexcept { return static_cast<bool>(file_); }
  [[nodiscard]] int get() const noexcept { return file_.get(); }

  /// Writes the contents, flushes them to the disk, and renames the file; 0 or errno.
  int publish(DataView contents) noexcept;

  /// The published file, open for reading and writing.
  Descriptor release() noexcept { return std::move(file_); }

 private:
  const std::string place_, path_;
  Descriptor file_;
  bool isPublished_ = false;
};

/// Changes the owner of a file that this process has just created to its folder's owner.
void giveToOwnerOfFolder(int made, const std::string& path);

}  // namespace ombrix::platform::detail

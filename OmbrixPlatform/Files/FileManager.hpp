#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// The file system's facts about an item; for a symbolic link about the link itself.
struct FileResourceValues {
  bool isRegularFile = false;
  bool isDirectory = false;
  bool isSymbolicLink = false;
  std::uint64_t fileSize = 0;  ///< Bytes of contents.

  /// Disk space in bytes; empty unless it is a regular file.
  std::optional<std::uint64_t> fileAllocatedSize;
  /// The same, including data that belongs to the file besides its contents, if the system tells.
  std::optional<std::uint64_t> totalFileAllocatedSize;

  Date contentModificationDate{};
};

/// One item met while a folder is walked; lives for the duration of the visit.
class DirectoryEntry {
 public:
  DirectoryEntry(const DirectoryEntry&) = delete;
  DirectoryEntry& operator=(const DirectoryEntry&) = delete;

  [[nodiscard]] std::string_view name() const noexcept { return name_; }
  [[nodiscard]] bool isDirectory() const noexcept { return isDirectory_; }

  /// The item's URL, made when asked for.
  [[nodiscard]] URL url() const;

  /// Asks the file system; fails when the item has been removed meanwhile.
  [[nodiscard]] FileResult<FileResourceValues> resourceValues() const;

 private:
  friend class FileManager;
  DirectoryEntry(const std::string& folder, int folderDescriptor, const char* name,
                 bool isDirectory)
      : folder_(folder),
        folderDescriptor_(folderDescriptor),
        name_(name),
        isDirectory_(isDirectory) {}

  const std::string& folder_;
  int folderDescriptor_;
  const char* name_;
  bool isDirectory_;
};

/// Which file, and in which state: equal states show the same file that was not written in between,
/// as far as the file system's clock tells.
struct FileState {
  std::uint64_t device = 0, file = 0, size = 0;
  std::int64_t seconds = 0, nanoseconds = 0;  ///< When it was last written, since 1970.

  friend bool operator==(const FileState&, const FileState&) = default;
};

/// A file's contents and its state when they were read.
struct FileContents {
  Data bytes;
  FileState state;
};

/// How to treat a path whose last component is a symbolic link.
enum class LastLink : std::uint8_t { followed, refused };

/// What a walk through a folder skips.
enum class EnumerationOptions : std::uint8_t {
  none,
  skipsHiddenFiles,  ///< Names that begin with ".", and everything below such folders.
};

/// Operations on files and folders. It holds no state: any thread, and a failure is a value. URLs
/// are taken as paths; a path that holds a NUL byte fails with EINVAL.
class FileManager {
 public:
  static const FileManager& defaultManager() noexcept;

  /// Whether the path leads to an existing item. A link is followed: for a dangling one the answer
  /// is no.
  [[nodiscard]] bool fileExists(const URL& url) const;

  /// Whether the path leads to a folder, or to a link to one.
  [[nodiscard]] bool isDirectory(const URL& url) const;

  /// Makes a folder.
  /// @param withIntermediateDirectories Also makes the folders on the way, and succeeds when the
  ///   folder exists already. With a file in its place it fails with EEXIST either way.
  FileResult<void> createDirectory(const URL& url, bool withIntermediateDirectories) const;

  /// Writes a file, in place where there is one (then as `overwriteFile` does). A new file that
  /// could not be completed is removed again. ENOENT without its folder; EAGAIN inside a
  /// `removeUnchanged`.
  /// @param lastLink A link that is refused fails with ELOOP.
  FileResult<void> createFile(const URL& url, DataView contents,
                              LastLink lastLink = LastLink::followed) const;

  /// Writes over an existing file in place, without emptying it first, which would be far slower.
  ///
  /// The first byte is zeroed before anything else and written last, when the file has its new
  /// length: a writer that is killed half-way leaves a file that starts with zero, never one that
  /// looks whole and holds parts of two. The part of a longer value beyond the old end is written
  /// before the rest: if there is no room for it, the old contents are restored. ENOENT when there
  /// is no file, ENOTSUP for a pipe or a device.
  FileResult<void> overwriteFile(const URL& url, DataView contents) const;

  /// The whole contents of a file; EISDIR for a folder, ENOMEM when they cannot be held in memory.
  [[nodiscard]] FileResult<Data> contents(const URL& url) const;

  /// The whole contents of a regular file. It never waits for the other end of a pipe: a file that
  /// is not regular fails with ENOTSUP, a folder with EISDIR.
  /// @param limitBytes A larger file fails with EFBIG and is not read.
  /// @param lastLink A link that is refused fails with ELOOP.
  [[nodiscard]] FileResult<FileContents> regularContents(
      const URL& url, std::uint64_t limitBytes, LastLink lastLink = LastLink::followed) const;

  /// Removes a file if its state and every byte are as they were read, and nobody has it open for
  /// writing or is removing it (writers are kept away on disks that have leases). Follows no link.
  /// @return Whether it was unchanged and has been removed. ENOENT when it does not exist.
  FileResult<bool> removeUnchanged(const URL& url, const FileContents& contents) const;

  /// The target of a path whose last component is a symbolic link or a chain of them, even if it
  /// does not exist; every other path gives itself. ELOOP when the links lead in a circle.
  [[nodiscard]] FileResult<URL> resolvingLastLink(const URL& url) const;

  /// Removes a file, a link (not where it leads), or a folder with everything in it; ENOENT when
  /// there is nothing.
  FileResult<void> removeItem(const URL& url) const;

  /// The file system's facts about an item; follows no link.
  [[nodiscard]] FileResult<FileResourceValues> resourceValues(const URL& url) const;

  /// The time when the item's contents were last written.
  [[nodiscard]] FileResult<Date> modificationDate(const URL& url) const;

  /// The items in a folder, not those further below; in no particular order.
  [[nodiscard]] FileResult<std::vector<URL>> contentsOfDirectory(const URL& url,
                                                                 EnumerationOptions options) const;

  /// Walks everything below a folder: a folder's items in no particular order, then the folders
  /// among them. Links are visited and not followed; the folder given may be one.
  /// @param visit Called for each item; answers whether to go on.
  /// @param onError Called for each folder that cannot be read, also the one given; the walk goes
  /// on.
  void enumerate(const URL& url, EnumerationOptions options,
                 const std::function<bool(const DirectoryEntry&)>& visit,
                 const std::function<void(const FileError&)>& onError) const;

 protected:
  constexpr FileManager() noexcept = default;

 private:
  static const FileManager kDefault;
};

}  // namespace ombrix::platform

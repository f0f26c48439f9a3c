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

/// What the file system says about an item; about a symbolic link itself, not where it leads.
struct FileResourceValues {
  bool isRegularFile = false;
  bool isDirectory = false;
  bool isSymbolicLink = false;
  std::uint64_t fileSize = 0;  ///< Bytes of contents.

  /// Disk space in bytes; nothing for what is not a regular file.
  std::optional<std::uint64_t> fileAllocatedSize;
  /// The same with what belongs to the file besides its contents, where the system tells.
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

  /// Asks the file system; fails when the item is gone meanwhile.
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

/// What a file held, and the state it was in.
struct FileContents {
  Data bytes;
  FileState state;
};

/// What becomes of a path whose last component is a symbolic link.
enum class LastLink : std::uint8_t { followed, refused };

/// What a walk through a folder passes over.
enum class EnumerationOptions : std::uint8_t {
  none,
  skipsHiddenFiles,  ///< Names that begin with ".", and everything below such folders.
};

/// Operations on files and folders. It holds no state: any thread, and a failure is a value. URLs
/// are taken as paths; a path that holds a NUL byte fails with EINVAL.
class FileManager {
 public:
  static const FileManager& defaultManager() noexcept;

  /// Whether something is there. A link counts as what it leads to: a dangling one as nothing.
  [[nodiscard]] bool fileExists(const URL& url) const;

  /// Whether a folder, or a link to one, is there.
  [[nodiscard]] bool isDirectory(const URL& url) const;

  /// Makes a folder.
  /// @param withIntermediateDirectories Makes the folders on the way too, and does not mind that
  ///   the folder is there already. A file in its place fails with EEXIST either way.
  FileResult<void> createDirectory(const URL& url, bool withIntermediateDirectories) const;

  /// Writes a file, in place where there is one (then as `overwriteFile` does). What could not be
  /// made whole is removed again. ENOENT without its folder; EAGAIN inside a `removeUnchanged`.
  /// @param lastLink A link that is refused fails with ELOOP.
  FileResult<void> createFile(const URL& url, DataView contents,
                              LastLink lastLink = LastLink::followed) const;

  /// Writes over an existing file in place, without emptying it first, which would be far slower.
  ///
  /// The first byte is zeroed before anything else and written last, when the file has its new
  /// length: a writer that is killed half-way leaves a file that starts with zero, never one that
  /// looks whole and holds parts of two. What a longer value has beyond the old end comes before
  /// the rest: where there is no room for it, the old contents come back. ENOENT when there is no
  /// file, ENOTSUP for a pipe or a device.
  FileResult<void> overwriteFile(const URL& url, DataView contents) const;

  /// The whole contents of a file; EISDIR for a folder, ENOMEM when they cannot be held in memory.
  [[nodiscard]] FileResult<Data> contents(const URL& url) const;

  /// The whole contents of a regular file. It never waits for the other end of a pipe: what is no
  /// regular file fails with ENOTSUP, a folder with EISDIR.
  /// @param limitBytes What holds more fails with EFBIG and is not read.
  /// @param lastLink A link that is refused fails with ELOOP.
  [[nodiscard]] FileResult<FileContents> regularContents(
      const URL& url, std::uint64_t limitBytes, LastLink lastLink = LastLink::followed) const;

  /// Removes a file that is as it was read, in state and every byte, and that nobody has open for
  /// writing or is removing (where disks have leases, writers are kept off). Follows no link.
  /// @return Whether it was; then it is gone. ENOENT when nothing is there.
  FileResult<bool> removeUnchanged(const URL& url, const FileContents& contents) const;

  /// Where a path leads whose last component is a symbolic link, or a chain of them, though nothing
  /// be there; every other path gives itself. ELOOP when they lead in a circle.
  [[nodiscard]] FileResult<URL> resolvingLastLink(const URL& url) const;

  /// Removes a file, a link (not where it leads), or a folder with everything in it; ENOENT when
  /// there is nothing.
  FileResult<void> removeItem(const URL& url) const;

  /// What the file system says about an item, without following a link.
  [[nodiscard]] FileResult<FileResourceValues> resourceValues(const URL& url) const;

  /// When the item's contents were last written.
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

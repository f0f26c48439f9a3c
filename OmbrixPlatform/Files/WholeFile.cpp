// Files that are read and written whole.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <new>
#include <stdexcept>

#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Files/Detail/LastLink.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix::platform {
namespace {

using detail::Descriptor;

std::unexpected<FileError> failure(int code, std::string_view action, const std::string& path) {
  return std::unexpected(FileError(code, action, path));
}

/// 0 for a regular file, else the errno that says what is wrong with it.
int codeFor(mode_t mode) noexcept {
  if (S_ISREG(mode)) return 0;
  return S_ISDIR(mode) ? EISDIR : ENOTSUP;
}

/// O_NONBLOCK, so that opening a pipe does not wait for its other end; regular files know no
/// difference.
int flagsFor(LastLink lastLink) noexcept {
  return O_NONBLOCK | (lastLink == LastLink::refused ? O_NOFOLLOW : 0);
}

FileState stateFrom(const struct stat& info) noexcept {
  return {info.st_dev, info.st_ino, static_cast<std::uint64_t>(info.st_size), info.st_mtim.tv_sec,
          info.st_mtim.tv_nsec};
}

/// Whether nothing was written in between. The last bit of the time does not count: the coordinator
/// turns it over to tell its own writes from others'.
bool isUnchanged(FileState a, FileState b) noexcept {
  a.nanoseconds |= 1;
  b.nanoseconds |= 1;
  return a == b;
}

/// pwrite(2) of all bytes; 0 or errno.
int writeAllAt(int descriptor, DataView bytes, off_t offset) noexcept {
  while (!bytes.empty()) {
    const auto count =
        detail::retrying([&] { return ::pwrite(descriptor, bytes.data(), bytes.size(), offset); });
    if (count < 0) return errno;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return 0;
}

/// Whether the process may write files of this length: a write beyond ends it by a signal.
bool isAllowed(std::size_t length) noexcept {
  struct rlimit most{};
  return ::getrlimit(RLIMIT_FSIZE, &most) != 0 || length <= most.rlim_cur;
}

/// Gives a file whose contents are as they were before its old modification time, too.
void restoreTime(int descriptor, const struct stat& info) noexcept {
  const timespec times[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, info.st_mtim};
  static_cast<void>(::futimens(descriptor, times));
}

/// Gives back the disk space that was set aside until the disk was full. The file keeps the length
/// and the time that another process may have given it meanwhile.
void returnRoom(int descriptor, const struct stat& before) noexcept {
  struct stat now{};
  if (::fstat(descriptor, &now) != 0) return;
  static_cast<void>(::ftruncate(descriptor, now.st_size));
  if (isUnchanged(stateFrom(now), stateFrom(before))) restoreTime(descriptor, before);
}

/// Sets disk space aside for a longer value; 0 or errno, and then the file is as it was.
int makeRoom(int descriptor, const struct stat& info, off_t length) noexcept {
  constexpr off_t kBlockBytes = 512;
  if (length <= info.st_blocks * kBlockBytes) return 0;
  if (detail::retrying([&] { return ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, 0, length); }) ==
      0) {
    return 0;
  }
  const int error = errno;
  if (error == EOPNOTSUPP || error == ENOSYS) return 0;
  returnRoom(descriptor, info);
  return error;
}

/// Writes what reaches beyond the old end, behind a zero that stands for the first byte. Where that
/// fails the file becomes as it was before; 0 or errno.
int writeGrowth(int descriptor, std::byte first, const struct stat& info,
                DataView growth) noexcept {
  constexpr std::byte kMark{0};
  int error = writeAllAt(descriptor, std::span(&kMark, 1), 0);
  if (error == 0) error = writeAllAt(descriptor, growth, info.st_size);
  if (error != 0 && detail::retrying([&] { return ::ftruncate(descriptor, info.st_size); }) == 0 &&
      writeAllAt(descriptor, std::span(&first, 1), 0) == 0) {
    restoreTime(descriptor, info);
  }
  return error;
}

/// Writes the contents behind a zero that stands for the first byte until the end; 0 or errno.
int writeInPlace(int descriptor, const struct stat& info, DataView contents) noexcept {
  const off_t oldLength = info.st_size;
  const auto length = static_cast<off_t>(contents.size());
  DataView rest = contents.subspan(length > 0 ? 1 : 0);
  std::byte first{};
  if (oldLength > 0 && length > oldLength && ::pread(descriptor, &first, 1, 0) == 1) {
    const auto kept = static_cast<std::size_t>(oldLength);
    const int error = writeGrowth(descriptor, first, info, contents.subspan(kept));
    if (error != 0) return error;
    rest = rest.first(kept - 1);
  }
  // In one call, which writes from the front: the mark stands before anything behind it changes.
  std::byte mark{0};
  const std::array parts{iovec{&mark, 1}, iovec{const_cast<std::byte*>(rest.data()), rest.size()}};
  const auto count = detail::retrying([&] { return ::pwritev(descriptor, parts.data(), 2, 0); });
  if (count < 0) return errno;
  const auto written = std::max<std::size_t>(static_cast<std::size_t>(count), 1);
  int error = writeAllAt(descriptor, rest.subspan(written - 1), static_cast<off_t>(written));
  if (error == 0 && std::max<off_t>(oldLength, 1) > length &&
      detail::retrying([&] { return ::ftruncate(descriptor, length); }) != 0) {
    error = errno;
  }
  if (error == 0 && length > 0) error = writeAllAt(descriptor, contents.first(1), 0);
  return error;
}

int writeTo(int descriptor, const struct stat& info, DataView contents, bool isNew) noexcept {
  if (const int code = codeFor(info.st_mode); code != 0) return code;
  if (!isAllowed(contents.size())) return EFBIG;
  if (!isNew) {
    const int error = makeRoom(descriptor, info, static_cast<off_t>(contents.size()));
    if (error != 0) return error;
  }
  return writeInPlace(descriptor, info, contents);
}

/// Whether a path still names a file that was looked at.
bool isNamed(const struct stat& file, const std::string& path) noexcept {
  struct stat named{};
  return ::lstat(path.c_str(), &named) == 0 && file.st_ino == named.st_ino &&
         file.st_dev == named.st_dev;
}

/// Keeps others off a file that is open for reading: who would write is refused with EAGAIN, and
/// who would remove it is refused as this one is when somebody has it open to write or is removing
/// it already. Where there are no leases (network disks, files of other users) writers are not kept
/// off.
class RemovalTurn {
 public:
  explicit RemovalTurn(int descriptor) noexcept : descriptor_(descriptor) {
    // Else the last of two removes by its name what was stored when the first was done.
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return;
    // Who is refused is announced by a signal, which unless told otherwise would end the process.
    ::fcntl(descriptor, F_SETSIG, SIGURG);
    isTaken_ = ::fcntl(descriptor, F_SETLEASE, F_RDLCK) == 0 || errno != EAGAIN;
  }
  ~RemovalTurn() {
    // Closing the file lets nothing go while a forked child has it, too.
    ::fcntl(descriptor_, F_SETLEASE, F_UNLCK);
    ::flock(descriptor_, LOCK_UN);
  }
  RemovalTurn(const RemovalTurn&) = delete;
  RemovalTurn& operator=(const RemovalTurn&) = delete;

  [[nodiscard]] explicit operator bool() const noexcept { return isTaken_; }

 private:
  const int descriptor_;
  bool isTaken_ = false;
};

/// Opens a file for writing.
Descriptor openToWrite(const std::string& path, int flags) noexcept {
  Descriptor file = detail::openFile(path, flags | O_RDWR);
  // What may not be read may be written all the same.
  if (!file && errno == EACCES) file = detail::openFile(path, flags | O_WRONLY);
  return file;
}

/// A file that was opened for writing, or made.
struct Opened {
  Descriptor file;
  struct stat info{};
  bool isNew = false;
  int error = 0;  ///< why there is no file, or it cannot be examined
};

/// Opens or makes the file of a path, which becomes that of what a link leads to where that is
/// made.
Opened openOrMakeOnce(std::string& path, int flags, bool mayMake) {
  Opened opened{openToWrite(path, flags)};
  if (!opened.file && errno == ENOENT && mayMake) {
    opened.file = openToWrite(path, flags | O_CREAT | O_EXCL);
    // A link that leads nowhere yet.
    if (!opened.file && errno == EEXIST && (flags & O_NOFOLLOW) == 0 &&
        detail::followLastLink(path) == 0) {
      opened.file = openToWrite(path, flags | O_CREAT | O_EXCL);
    }
    opened.isNew = static_cast<bool>(opened.file);
    if (opened.isNew) detail::giveToOwnerOfFolder(opened.file.get(), path);
    // Somebody else has made it meanwhile.
    if (!opened.file && errno == EEXIST) opened.file = openToWrite(path, flags | O_CREAT);
  }
  if (!opened.file || ::fstat(opened.file.get(), &opened.info) != 0) opened.error = errno;
  return opened;
}

/// The same until the file has the name: one that was removed between the lookup of its name and
/// the opening does not.
Opened openOrMake(std::string& path, int flags, bool mayMake) {
  constexpr int kMostLookups = 100;
  Opened opened = openOrMakeOnce(path, flags, mayMake);
  for (int lookups = 1; lookups < kMostLookups; ++lookups) {
    if (opened.error != 0 || opened.info.st_nlink > 0) break;
    opened = openOrMakeOnce(path, flags, mayMake);
  }
  return opened;
}

/// Whether a file holds a whole value: while one is written, a zero stands for its first byte.
bool holdsValue(int descriptor) noexcept {
  std::byte first{};
  return ::pread(descriptor, &first, 1, 0) == 1 && first != std::byte{0};
}

FileResult<void> writeFile(std::string path, DataView contents, int flags, bool mayMake) {
  auto [file, info, isNew, error] = openOrMake(path, flags, mayMake);
  if (!file) return failure(error, "open", path);
  if (error == 0) error = writeTo(file.get(), info, contents, isNew);
  // Another process may have stored its value in the file that was made here.
  const bool isAnothers = error != 0 && holdsValue(file.get());
  if (error != 0) static_cast<void>(::fstat(file.get(), &info));  // it may be what has failed
  if (const int closeError = file.reset(); error == 0) error = closeError;
  if (error == 0) return {};
  // Not what has taken the place of a file that was not finished.
  if (isNew && !isAnothers && isNamed(info, path)) ::unlink(path.c_str());
  return failure(error, "write", path);
}

/// Reads an open file to its end; 0 or errno.
int readAll(int descriptor, const struct stat& info, std::uint64_t limitBytes, Data& bytes) try {
  // One byte more than the size, so that the end shows without another allocation. Files that tell
  // no size, such as those in /proc, are read in growing blocks.
  constexpr std::size_t kSmallestBlockBytes = 4096;
  const auto size = static_cast<std::size_t>(std::max<off_t>(info.st_size, 0));
  bytes.resize(size == 0 ? kSmallestBlockBytes : size + 1);
  std::size_t filled = 0;
  while (true) {
    const auto count = detail::readSome(descriptor, std::span(bytes).subspan(filled));
    if (count < 0) return errno;
    filled += static_cast<std::size_t>(count);
    if (filled > limitBytes) return EFBIG;
    // A file that gave what it promised is at its end; asking once more costs a system call.
    if (count == 0 || (S_ISREG(info.st_mode) && size > 0 && filled == size)) break;
    if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
  }
  bytes.resize(filled);
  return 0;
} catch (const std::bad_alloc&) {
  return ENOMEM;
} catch (const std::length_error&) {
  return ENOMEM;
}

/// Whether an open file holds exactly these bytes, from where it stands; 0 or errno in `error`.
bool holds(int descriptor, DataView bytes, int& error) noexcept {
  std::array<std::byte, 16384> block;
  while (true) {
    const auto count = detail::readSome(descriptor, block);
    if (count < 0) {
      error = errno;
      return false;
    }
    if (count == 0) return bytes.empty();
    const auto read = static_cast<std::size_t>(count);
    if (read > bytes.size() || std::memcmp(block.data(), bytes.data(), read) != 0) return false;
    bytes = bytes.subspan(read);
  }
}

}  // namespace

FileResult<void> FileManager::createFile(const URL& url, DataView contents,
                                         LastLink lastLink) const {
  return writeFile(url.path(), contents, flagsFor(lastLink), true);
}

FileResult<void> FileManager::overwriteFile(const URL& url, DataView contents) const {
  return writeFile(url.path(), contents, flagsFor(LastLink::followed), false);
}

FileResult<Data> FileManager::contents(const URL& url) const {
  const std::string path = url.path();
  const Descriptor file = detail::openFile(path, O_RDONLY);
  struct stat info{};
  if (!file || ::fstat(file.get(), &info) != 0) return failure(errno, "open", path);
  if (S_ISDIR(info.st_mode)) return failure(EISDIR, "read", path);
  Data bytes;
  const int error = readAll(file.get(), info, UINT64_MAX, bytes);
  if (error != 0) return failure(error, "read", path);
  return bytes;
}

FileResult<FileContents> FileManager::regularContents(const URL& url, std::uint64_t limitBytes,
                                                      LastLink lastLink) const {
  const std::string path = url.path();
  const Descriptor file = detail::openFile(path, O_RDONLY | flagsFor(lastLink));
  struct stat info{};
  if (!file || ::fstat(file.get(), &info) != 0) return failure(errno, "open", path);
  int error = codeFor(info.st_mode);
  FileContents contents{{}, stateFrom(info)};
  if (error == 0 && contents.state.size > limitBytes) error = EFBIG;
  if (error == 0) error = readAll(file.get(), info, limitBytes, contents.bytes);
  if (error != 0) return failure(error, "read", path);
  return contents;
}

FileResult<bool> FileManager::removeUnchanged(const URL& url, const FileContents& contents) const {
  const std::string path = url.path();
  const Descriptor file = detail::openFile(path, O_RDONLY | flagsFor(LastLink::refused));
  struct stat info{};
  if (!file || ::fstat(file.get(), &info) != 0) return failure(errno, "open", path);
  if (!isUnchanged(stateFrom(info), contents.state)) return false;
  const RemovalTurn turn(file.get());
  if (!turn) return false;
  int error = 0;
  // The time alone does not tell: two writes within a tick of the kernel's clock have the same.
  if (!holds(file.get(), contents.bytes, error)) {
    if (error != 0) return failure(error, "read", path);
    return false;
  }
  if (!isNamed(info, path)) return false;
  if (::unlink(path.c_str()) != 0) return failure(errno, "remove", path);
  return true;
}

FileResult<URL> FileManager::resolvingLastLink(const URL& url) const {
  std::string path = url.path();
  if (const int error = detail::followLastLink(path); error != 0) {
    return failure(error, "follow", path);
  }
  return path == url.path() ? url : URL::fileURL(path, url.hasDirectoryPath());
}

}  // namespace ombrix::platform

#include "OmbrixPlatform/Files/FileManager.hpp"

#include <sys/stat.h>
#include <sys/uio.h>

#include <array>
#include <filesystem>

#include "OmbrixPlatform/Files/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Files/Detail/FileStatus.hpp"

namespace ombrix::platform {
namespace {

using detail::Descriptor;

bool holdsNul(const std::string& path) noexcept { return path.find('\0') != std::string::npos; }

std::unexpected<FileError> failure(int code, std::string_view action, const std::string& path) {
  return std::unexpected(FileError(code, action, path));
}

bool isFolder(const std::string& path) noexcept {
  struct stat info{};
  return !holdsNul(path) && stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

/// Makes a folder and those above it; 0 or errno. Begins at the lowest, which is mostly enough.
int makeFolders(const std::string& path) {
  if (mkdir(path.c_str(), 0777) == 0) return 0;
  if (errno == EEXIST) return isFolder(path) ? 0 : EEXIST;
  if (errno != ENOENT) return errno;
  const auto slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return ENOENT;
  if (const int error = makeFolders(path.substr(0, slash)); error != 0) return error;
  // Somebody else may have made it meanwhile.
  if (mkdir(path.c_str(), 0777) == 0 || (errno == EEXIST && isFolder(path))) return 0;
  return errno;
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

/// Writes the contents behind a zero that stands for the first byte until the end; 0 or errno.
int writeInPlace(int descriptor, DataView contents) noexcept {
  struct stat info{};
  if (fstat(descriptor, &info) != 0) return errno;
  const auto length = static_cast<off_t>(contents.size());
  // In one call, which writes from the front: the mark stands before anything behind it changes.
  std::byte mark{0};
  const DataView rest = contents.subspan(length > 0 ? 1 : 0);
  const std::array parts{iovec{&mark, 1}, iovec{const_cast<std::byte*>(rest.data()), rest.size()}};
  const auto count = detail::retrying([&] { return ::pwritev(descriptor, parts.data(), 2, 0); });
  if (count < 0) return errno;
  const auto written = std::max<std::size_t>(static_cast<std::size_t>(count), 1);
  int error = writeAllAt(descriptor, rest.subspan(written - 1), static_cast<off_t>(written));
  if (error == 0 && std::max<off_t>(info.st_size, 1) > length &&
      detail::retrying([&] { return ::ftruncate(descriptor, length); }) != 0) {
    error = errno;
  }
  if (error == 0 && length > 0) error = writeAllAt(descriptor, contents.first(1), 0);
  return error;
}

FileResult<void> writeFile(const URL& url, DataView contents, int flags) {
  const std::string path = url.path();
  Descriptor file = detail::openFile(path, O_WRONLY | flags);
  if (!file) return failure(errno, "open", path);
  int error = writeInPlace(file.get(), contents);
  if (const int closeError = file.reset(); error == 0) error = closeError;
  if (error != 0) return failure(error, "write", path);
  return {};
}

}  // namespace

constinit const FileManager FileManager::kDefault;

const FileManager& FileManager::defaultManager() noexcept { return kDefault; }

bool FileManager::fileExists(const URL& url) const {
  const std::string path = url.path();
  struct stat info{};
  return !holdsNul(path) && stat(path.c_str(), &info) == 0;
}

bool FileManager::isDirectory(const URL& url) const { return isFolder(url.path()); }

FileResult<void> FileManager::createDirectory(const URL& url,
                                              bool withIntermediateDirectories) const {
  const std::string path = url.path();
  int error = 0;
  if (holdsNul(path)) {
    error = EINVAL;
  } else if (withIntermediateDirectories) {
    error = makeFolders(path);
  } else if (mkdir(path.c_str(), 0777) != 0) {
    error = errno;
  }
  if (error != 0) return failure(error, "create folder", path);
  return {};
}

FileResult<void> FileManager::createFile(const URL& url, DataView contents) const {
  return writeFile(url, contents, O_CREAT);
}

FileResult<void> FileManager::overwriteFile(const URL& url, DataView contents) const {
  return writeFile(url, contents, 0);
}

FileResult<Data> FileManager::contents(const URL& url) const {
  const std::string path = url.path();
  const Descriptor file = detail::openFile(path, O_RDONLY);
  struct stat info{};
  if (!file || fstat(file.get(), &info) != 0) return failure(errno, "open", path);
  if (S_ISDIR(info.st_mode)) return failure(EISDIR, "read", path);

  // One byte more than the size, so that the end shows without another allocation. Files that tell
  // no size, such as those in /proc, are read in growing blocks.
  constexpr std::size_t kSmallestBlockBytes = 4096;
  const auto size = static_cast<std::size_t>(std::max<off_t>(info.st_size, 0));
  Data bytes(size == 0 ? kSmallestBlockBytes : size + 1);
  std::size_t filled = 0;
  while (true) {
    const auto count = detail::readSome(file.get(), std::span(bytes).subspan(filled));
    if (count < 0) return failure(errno, "read", path);
    filled += static_cast<std::size_t>(count);
    // A file that gave what it promised is at its end; asking once more costs a system call.
    if (count == 0 || (S_ISREG(info.st_mode) && size > 0 && filled == size)) break;
    if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
  }
  bytes.resize(filled);
  return bytes;
}

FileResult<void> FileManager::removeItem(const URL& url) const {
  const std::string path = url.path();
  if (holdsNul(path)) return failure(EINVAL, "remove", path);
  if (unlink(path.c_str()) == 0) return {};
  if (errno != EISDIR) return failure(errno, "remove", path);
  std::error_code error;
  std::filesystem::remove_all(path, error);
  if (error) return failure(error.value(), "remove", path);
  return {};
}

FileResult<FileResourceValues> FileManager::resourceValues(const URL& url) const {
  const std::string path = url.path();
  if (holdsNul(path)) return failure(EINVAL, "examine", path);
  struct stat info{};
  if (lstat(path.c_str(), &info) != 0) return failure(errno, "examine", path);
  return detail::resourceValuesFrom(info);
}

FileResult<Date> FileManager::modificationDate(const URL& url) const {
  auto values = resourceValues(url);
  if (!values) return std::unexpected(std::move(values).error());
  return values->contentModificationDate;
}

}  // namespace ombrix::platform

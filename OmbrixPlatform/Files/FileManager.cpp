#include "OmbrixPlatform/Files/FileManager.hpp"

#include <sys/stat.h>

#include <filesystem>

#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Files/Detail/FileStatus.hpp"
#include "OmbrixPlatform/Files/Detail/LastLink.hpp"

namespace ombrix::platform {
namespace {

bool holdsNul(const std::string& path) noexcept { return path.find('\0') != std::string::npos; }

std::unexpected<FileError> failure(int code, std::string_view action, const std::string& path) {
  return std::unexpected(FileError(code, action, path));
}

bool isFolder(const std::string& path) noexcept {
  struct stat info{};
  return !holdsNul(path) && stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

/// Makes a folder and those above it; 0 or errno. Begins at the lowest, which is usually enough.
/// For a dangling link the folder is made where the link leads.
int makeFolders(const std::string& path) {
  int error = detail::makeFolder(path);
  if (error == EEXIST) {
    if (isFolder(path)) return 0;
    std::string target = path;
    error = detail::followLastLink(target);
    if (error != 0 || target == path) return error != 0 ? error : EEXIST;
    error = detail::makeFolder(target);
    return isFolder(target) ? 0 : error;
  }
  if (error != ENOENT) return error;
  const auto slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return ENOENT;
  error = makeFolders(path.substr(0, slash));
  if (error == 0) error = detail::makeFolder(path);
  // Another process may have made it meanwhile.
  return error == EEXIST && isFolder(path) ? 0 : error;
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
  } else {
    error = detail::makeFolder(path);
  }
  if (error != 0) return failure(error, "create folder", path);
  return {};
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

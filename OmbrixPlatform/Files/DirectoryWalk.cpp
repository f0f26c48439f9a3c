#include <dirent.h>

#include <memory>

#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Files/Detail/FileStatus.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix::platform {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

/// Opens a folder for reading; null with errno when that fails.
Folder openFolder(const std::string& path, int flags) noexcept {
  detail::Descriptor descriptor = detail::openFile(path, O_RDONLY | O_DIRECTORY | flags);
  if (!descriptor) return nullptr;
  DIR* folder = fdopendir(descriptor.get());
  if (folder != nullptr) descriptor.release();
  return Folder(folder);
}

/// The next entry; null at the end, and with errno when it could not be read.
const dirent* nextEntry(DIR* folder) noexcept {
  errno = 0;
  return readdir(folder);  // NOLINT(concurrency-mt-unsafe): no other thread has this folder
}

bool isSelfOrParent(std::string_view name) noexcept { return name == "." || name == ".."; }

bool namesFolder(int folder, const dirent& entry) noexcept {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  struct stat info{};  // some file systems do not tell the type along with the name
  return fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

std::string joined(const std::string& folder, std::string_view name) {
  std::string path = folder;
  if (!path.ends_with('/')) path.push_back('/');
  return path.append(name);
}

}  // namespace

URL DirectoryEntry::url() const { return URL::fileURL(joined(folder_, name_), isDirectory_); }

FileResult<FileResourceValues> DirectoryEntry::resourceValues() const {
  struct stat info{};
  if (fstatat(folderDescriptor_, name_, &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::unexpected(FileError(errno, "examine", joined(folder_, name_)));
  }
  return detail::resourceValuesFrom(info);
}

void FileManager::enumerate(const URL& url, EnumerationOptions options,
                            const std::function<bool(const DirectoryEntry&)>& visit,
                            const std::function<void(const FileError&)>& onError) const {
  // Only one folder is open at a time, so that depth costs no descriptors.
  std::vector<std::string> waiting{url.path()};
  int linkFlag = 0;  // only the given folder itself may be a link
  while (!waiting.empty()) {
    const std::string path = std::move(waiting.back());
    waiting.pop_back();
    const Folder folder = openFolder(path, linkFlag);
    linkFlag = O_NOFOLLOW;
    if (!folder) {
      onError(FileError(errno, "open folder", path));
      continue;
    }
    const int descriptor = dirfd(folder.get());
    while (true) {
      const dirent* entry = nextEntry(folder.get());
      if (entry == nullptr) {
        if (errno != 0) onError(FileError(errno, "read folder", path));
        break;
      }
      const char* name = entry->d_name;
      const bool isSkipped =
          options == EnumerationOptions::skipsHiddenFiles ? *name == '.' : isSelfOrParent(name);
      if (isSkipped) continue;
      const bool isFolder = namesFolder(descriptor, *entry);
      if (!visit(DirectoryEntry(path, descriptor, name, isFolder))) return;
      if (isFolder) waiting.push_back(joined(path, name));
    }
  }
}

FileResult<std::vector<URL>> FileManager::contentsOfDirectory(const URL& url,
                                                              EnumerationOptions options) const {
  const std::string path = url.path();
  const Folder folder = openFolder(path, 0);
  if (!folder) return std::unexpected(FileError(errno, "open folder", path));
  std::vector<URL> urls;
  while (true) {
    const dirent* entry = nextEntry(folder.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (isSelfOrParent(name)) continue;
    if (options == EnumerationOptions::skipsHiddenFiles && name.starts_with('.')) continue;
    urls.push_back(URL::fileURL(joined(path, name), namesFolder(dirfd(folder.get()), *entry)));
  }
  if (errno != 0) return std::unexpected(FileError(errno, "read folder", path));
  return urls;
}

}  // namespace ombrix::platform

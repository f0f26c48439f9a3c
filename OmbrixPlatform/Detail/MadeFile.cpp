#include "OmbrixPlatform/Detail/MadeFile.hpp"

#include <sys/stat.h>

#include <cstdio>

namespace ombrix::platform::detail {

void giveToOwnerOfFolder(int made, const std::string& path) {
  if (::geteuid() != 0) return;
  const auto name = path.find_last_not_of('/');
  const auto slash = path.rfind('/', name);
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat owner{};
  if (::stat(folder.c_str(), &owner) != 0 || owner.st_uid == 0) return;
  static_cast<void>(::fchown(made, owner.st_uid, owner.st_gid));
}

Descriptor makeFile(const std::string& path, int flags, mode_t mode) {
  auto made = openFile(path, flags | O_CREAT | O_EXCL, mode);
  if (made) giveToOwnerOfFolder(made.get(), path);
  return made;
}

Descriptor openOrMakeFile(const std::string& path, int flags, mode_t mode) {
  constexpr int kMostAttempts = 100;  // others may create and remove it meanwhile
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    // Non-blocking: opening a pipe would wait for its other end.
    auto file = openFile(path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (file || errno != ENOENT) return file;
    file = makeFile(path, flags, mode);
    if (file || errno != EEXIST) return file;
  }
  return {};
}

std::string hiddenSibling(const std::string& path, std::string_view suffix) {
  const std::size_t name = path.rfind('/') + 1;  // 0 without a folder
  return path.substr(0, name).append(".").append(path, name).append(suffix);
}

FreshFile::FreshFile(const std::string& place)
    : place_(place), path_(hiddenSibling(place, ".new")) {
  ::unlink(path_.c_str());  // left by a process that was killed
  file_ = makeFile(path_, O_RDWR);
}

FreshFile::~FreshFile() {
  if (!file_ || isPublished_) return;
  const int error = errno;  // the caller may want it
  ::unlink(path_.c_str());
  errno = error;
}

int FreshFile::publish(DataView contents) noexcept {
  const int error = writeAll(file_.get(), contents);
  if (error != 0) return error;
  if (::fsync(file_.get()) != 0 || ::rename(path_.c_str(), place_.c_str()) != 0) return errno;
  isPublished_ = true;
  return 0;
}

int makeFolder(const std::string& path, mode_t mode) {
  if (::mkdir(path.c_str(), mode) != 0) return errno;
  if (::geteuid() != 0) return 0;
  const auto made = openFile(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (made) giveToOwnerOfFolder(made.get(), path);
  return 0;
}

}  // namespace ombrix::platform::detail

#include "OmbrixPlatform/Files/FileClaim.hpp"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform {

FileResult<FileClaim> FileClaim::take(const std::string& path) {
  auto file = OutputStream::withPath(path, OutputFileMode::append);
  if (auto opened = file->open(); !opened) return std::unexpected(std::move(opened).error());
  const int descriptor = file->fileDescriptor();
  const bool isFree =
      detail::retrying([&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); }) == 0 ||
      errno != EWOULDBLOCK;
  // Whoever had it before may have given the name to another file.
  struct stat held{}, named{};
  if (!isFree || ::fstat(descriptor, &held) != 0 || ::stat(path.c_str(), &named) != 0 ||
      held.st_ino != named.st_ino || held.st_dev != named.st_dev) {
    return std::unexpected(FileError(EWOULDBLOCK, "claim", path));
  }
  return FileClaim(std::move(file));
}

}  // namespace ombrix::platform

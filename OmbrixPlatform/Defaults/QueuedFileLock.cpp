#include "OmbrixPlatform/Defaults/Detail/QueuedFileLock.hpp"

#include <sys/file.h>
#include <sys/stat.h>

#include <utility>

#include "OmbrixPlatform/Detail/MadeFile.hpp"

namespace ombrix::platform::detail {
namespace {

/// Whether the locked file still has its name: somebody may have cleaned the folder up meanwhile,
/// and then other processes lock the file's successor.
bool isStillNamed(const Descriptor& file, const std::string& path) {
  struct stat held{}, named{};
  return ::fstat(file.get(), &held) == 0 && ::stat(path.c_str(), &named) == 0 &&
         held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

int lockWhole(int file, LockStep step) {
  const int operation = step == LockStep::letGo  ? LOCK_UN
                        : step == LockStep::wait ? LOCK_EX
                                                 : LOCK_EX | LOCK_NB;
  return retrying([&] { return ::flock(file, operation); }) == 0 ? 0 : errno;
}

}  // namespace

HeldFileLock::~HeldFileLock() {
  if (file_) lockWhole(file_.get(), LockStep::letGo);
}

HeldFileLock QueuedFileLock::acquire(const std::string& path,
                                     std::chrono::steady_clock::duration timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (true) {
    auto file = openOrMakeFile(path, O_RDWR);
    if (!file) return {};
    if (const int error = lockWhole(file.get(), LockStep::ask); error == EWOULDBLOCK) {
      file = waitFor(path, std::move(file), deadline);
    } else if (error != 0) {
      errno = error;
      return {};
    }
    if (!file) return {};
    if (isStillNamed(file, path)) return HeldFileLock(std::move(file));
    if (std::chrono::steady_clock::now() >= deadline) {
      errno = ETIMEDOUT;
      return {};
    }
  }
}

Descriptor QueuedFileLock::waitFor(const std::string& path, Descriptor file,
                                   LockDeadline deadline) {
  const auto earlier = std::exchange(wait_, nullptr);
  const bool isInQueue = earlier && path == path_ && earlier->resume();
  auto wait = isInQueue ? earlier : LockWait::begin(file.get(), lockWhole);
  if (!wait) {
    errno = lockBefore(file.get(), lockWhole, deadline);
    return errno == 0 ? std::move(file) : Descriptor();
  }
  auto locked = wait->finish(deadline);
  if (!locked && errno == ETIMEDOUT) {
    wait_ = std::move(wait);
    path_ = path;
    errno = ETIMEDOUT;
  }
  return locked;
}

}  // namespace ombrix::platform::detail

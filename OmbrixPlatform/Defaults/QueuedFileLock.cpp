#include "OmbrixPlatform/Defaults/Detail/QueuedFileLock.hpp"

#include <sys/file.h>
#include <sys/stat.h>

#include <condition_variable>
#include <mutex>
#include <utility>

#include "OmbrixPlatform/Concurrency/QuietThread.hpp"
#include "OmbrixPlatform/Defaults/Detail/SideFile.hpp"

namespace ombrix::platform::detail {
namespace {

/// Whether the file that is locked still has its name: whoever cleaned the folder up meanwhile took
/// it away, and others lock its successor.
bool isStillNamed(const Descriptor& file, const std::string& path) {
  struct stat held{}, named{};
  return ::fstat(file.get(), &held) == 0 && ::stat(path.c_str(), &named) == 0 &&
         held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

}  // namespace

/// A place in the queue, kept by a thread of its own.
struct QueuedFileLock::Wait {
  explicit Wait(std::string lockFile) : path(std::move(lockFile)) {}

  const std::string path;
  std::mutex mutex;
  std::condition_variable done;
  bool isWanted = true;  // else the lock is let go as soon as it is had
  bool isDone = false;
  int error = 0;
  Descriptor file;  // holds the lock when done

  void run(Descriptor waiting) {
    const int result = retrying([&] { return ::flock(waiting.get(), LOCK_EX); });
    const int reason = result == 0 ? 0 : errno;
    const std::lock_guard lock(mutex);
    isDone = true;
    error = reason;
    if (isWanted && error == 0) file = std::move(waiting);
    done.notify_one();
  }
};

QueuedFileLock::~QueuedFileLock() = default;

Descriptor QueuedFileLock::acquire(const std::string& path,
                                   std::chrono::steady_clock::duration timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (true) {
    auto file = openSideFile(path, O_RDWR);
    if (!file) return {};
    if (retrying([&] { return ::flock(file.get(), LOCK_EX | LOCK_NB); }) != 0) {
      if (errno != EWOULDBLOCK) return {};
      file = waitFor(path, std::move(file), deadline);
      if (!file) return {};
    }
    if (isStillNamed(file, path)) return file;
    if (std::chrono::steady_clock::now() >= deadline) {
      errno = ETIMEDOUT;
      return {};
    }
  }
}

Descriptor QueuedFileLock::waitFor(const std::string& path, Descriptor file,
                                   std::chrono::steady_clock::time_point deadline) {
  auto wait = std::exchange(wait_, nullptr);
  if (wait && wait->path == path) {
    const std::lock_guard lock(wait->mutex);
    wait->isWanted = !wait->isDone;
    if (wait->isDone) wait = nullptr;  // it had the lock and let it go
  } else {
    wait = nullptr;
  }
  if (!wait) {
    wait = std::make_shared<Wait>(path);
    auto thread = startQuietThread("ombrix-lock", [wait, waiting = std::move(file)]() mutable {
      wait->run(std::move(waiting));
    });
    if (!thread.joinable()) {
      errno = EAGAIN;
      return {};
    }
    thread.detach();
  }
  std::unique_lock lock(wait->mutex);
  if (wait->done.wait_until(lock, deadline, [&] { return wait->isDone; })) {
    errno = wait->error;
    return std::move(wait->file);
  }
  wait->isWanted = false;
  lock.unlock();
  wait_ = std::move(wait);
  errno = ETIMEDOUT;
  return {};
}

}  // namespace ombrix::platform::detail

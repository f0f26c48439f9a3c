#include "OmbrixCore/Data/Stores/FailingCalls.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

namespace ombrix::testing {
namespace {

const char* hiddenPart = nullptr;
int hiddenCode = 0;

bool fails() noexcept {
  FailingCalls& calls = failingCalls();
  if (!calls.allFail) {
    if (calls.countdown == 0 || --calls.countdown > 0) return false;
    calls.allFail = calls.lasts;
  }
  errno = calls.code;
  return true;
}

template <class... Args>
long call(long number, Args... args) noexcept {
  return fails() ? -1 : ::syscall(number, args...);
}

template <class... Args>
long change(long number, Args... args) noexcept {
  if (fails()) return -1;
  failingCalls().hasChanged = true;
  return ::syscall(number, args...);
}

}  // namespace

FailingCalls& failingCalls() noexcept {
  thread_local FailingCalls calls;
  return calls;
}

CallHooks& callHooks() {
  thread_local CallHooks hooks;
  return hooks;
}

void hidePaths(const char* part, int code) noexcept {
  hiddenCode = code;
  hiddenPart = part;
}

// By the calls that every processor has: newer ones lack open, stat, unlink and their likes.
extern "C" {
int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return static_cast<int>(call(SYS_openat, AT_FDCWD, path, flags, mode));
}
int fcntl(int file, int command, ...) {
  va_list rest;
  va_start(rest, command);
  const long argument = va_arg(rest, long);
  va_end(rest);
  return static_cast<int>(call(SYS_fcntl, file, command, argument));
}
int close(int file) {
  const bool isFailing = fails();  // as on a full network disk: reported, yet closed
  const auto result = static_cast<int>(::syscall(SYS_close, file));
  if (isFailing) errno = failingCalls().code;
  return isFailing ? -1 : result;
}
ssize_t read(int file, void* bytes, size_t count) {
  if (const auto hook = std::exchange(callHooks().duringRead, nullptr)) hook();
  return call(SYS_read, file, bytes, count);
}
ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset) {
  return change(SYS_pwrite64, file, bytes, count, offset);
}
ssize_t pwritev(int file, const iovec* parts, int count, off_t offset) {
  return change(SYS_pwritev, file, parts, count, offset, 0L);
}
int fallocate(int file, int mode, off_t offset, off_t length) {
  return static_cast<int>(call(SYS_fallocate, file, mode, offset, length));
}
ssize_t readlink(const char* path, char* target, size_t size) noexcept {
  return call(SYS_readlinkat, AT_FDCWD, path, target, size);
}
int lstat(const char* path, struct stat* info) noexcept {
  return static_cast<int>(call(SYS_newfstatat, AT_FDCWD, path, info, AT_SYMLINK_NOFOLLOW));
}
int ftruncate(int file, off_t length) noexcept {
  return static_cast<int>(call(SYS_ftruncate, file, length));
}
int unlink(const char* path) noexcept {
  if (const auto hook = std::exchange(callHooks().beforeUnlink, nullptr)) hook();
  return static_cast<int>(change(SYS_unlinkat, AT_FDCWD, path, 0));
}
int mkdir(const char* path, mode_t mode) noexcept {
  return static_cast<int>(call(SYS_mkdirat, AT_FDCWD, path, mode));
}
int stat(const char* path, struct stat* info) noexcept {
  if (hiddenPart != nullptr && std::strstr(path, hiddenPart) != nullptr) {
    errno = hiddenCode;
    return -1;
  }
  return static_cast<int>(call(SYS_newfstatat, AT_FDCWD, path, info, 0));
}
int fstat(int file, struct stat* info) noexcept {
  return static_cast<int>(call(SYS_fstat, file, info));
}
}

}  // namespace ombrix::testing

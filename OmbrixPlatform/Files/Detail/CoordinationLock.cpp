#include "OmbrixPlatform/Files/Detail/CoordinationLock.hpp"

#include <sys/stat.h>

#include <filesystem>
#include <span>
#include <vector>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix::platform::detail {
namespace {

/// The bytes of the lock file that stand for one path; they need not exist in it.
///
/// Readers pass the gate, shared, on their way to `access`; writers hold it until they are done, so
/// that a stream of readers never keeps one waiting for ever. `upgrade` is held by a reader that
/// became a writer: a second one would wait for the first, and the first for it.
struct Ranges {
  off_t gate, access, upgrade;
};

Ranges rangesOf(const std::string& path) noexcept {
  // FNV-1a. Paths of the same hash merely share their lock.
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : path) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  const auto first = static_cast<off_t>((hash >> 4U) << 2U);
  return {first, first + 1, first + 2};
}

struct Held {
  std::string lockFile;
  off_t access;
  bool isExclusive;
  Descriptor file;       // empty where no lock was needed
  int readOnlyCode = 0;  // why the file could not be opened for writing
  unsigned forks = forkDepth();
};

/// The accesses of this thread, the innermost last; null for none. It has no destructor, since a
/// thread's destructors run before the functions of `atExit`, which coordinate as well.
constinit thread_local std::vector<Held>* heldByThread = nullptr;

std::span<Held> held() noexcept {
  return heldByThread == nullptr ? std::span<Held>() : std::span(*heldByThread);
}

void hold(Held access) {
  if (heldByThread == nullptr) heldByThread = new std::vector<Held>;
  heldByThread->push_back(std::move(access));
}

Held letGo() noexcept {
  Held last = std::move(heldByThread->back());
  heldByThread->pop_back();
  if (heldByThread->empty()) delete std::exchange(heldByThread, nullptr);
  return last;
}

/// Locks bytes or releases them; 0 or errno. The locks belong to the open file, and so to one
/// acquisition.
int setLock(int file, off_t first, off_t count, short type,
            LockStep step = LockStep::ask) noexcept {
  struct flock lock{};
  lock.l_type = step == LockStep::letGo ? static_cast<short>(F_UNLCK) : type;
  lock.l_whence = SEEK_SET;
  lock.l_start = first;
  lock.l_len = count;
  const int command = step == LockStep::wait ? F_OFD_SETLKW : F_OFD_SETLK;
  return retrying([&] { return ::fcntl(file, command, &lock); }) == 0 ? 0 : errno;
}

/// Locks one byte.
LockCall lockOf(off_t byte, short type) {
  return [byte, type](int file, LockStep step) { return setLock(file, byte, 1, type, step); };
}

Descriptor openLockFile(const std::string& path) {
  Descriptor file = openOrMakeFile(path, O_RDWR);
  if (file || errno != ENOENT) return file;
  const auto folder = std::filesystem::path(path).parent_path();
  const auto made =
      FileManager::defaultManager().createDirectory(URL::fileURL(folder.string(), true), true);
  if (made) return openOrMakeFile(path, O_RDWR);
  errno = made.error().code();
  return {};
}

enum class Currency : std::uint8_t { current, replaced, gone, unknown };

/// Whether the path still leads to the open file; with errno where that cannot be told.
Currency currencyOf(int file, const std::string& path) noexcept {
  struct stat open{};
  struct stat named{};
  if (::fstat(file, &open) != 0) return Currency::unknown;
  if (::stat(path.c_str(), &named) != 0) {
    return errno == ENOENT ? Currency::gone : Currency::unknown;
  }
  const bool isSame = open.st_ino == named.st_ino && open.st_dev == named.st_dev;
  return isSame ? Currency::current : Currency::replaced;
}

int lockRanges(int file, const Ranges& ranges, CoordinationAccess access, LockDeadline deadline) {
  const bool isExclusive = access == CoordinationAccess::exclusive;
  const short type = isExclusive ? F_WRLCK : F_RDLCK;
  int error = lockBefore(file, lockOf(ranges.gate, type), deadline);
  if (error != 0) return error;
  error = lockBefore(file, lockOf(ranges.access, type), deadline);
  // A writer that gives up must not keep readers out, since others may still share the access.
  if (error == 0 && isExclusive) return 0;
  const int gateError = setLock(file, ranges.gate, 1, F_UNLCK);
  return error != 0 ? error : gateError;
}

}  // namespace

FileResult<CoordinationLock> CoordinationLock::acquire(const std::string& lockFile,
                                                       const std::string& path,
                                                       CoordinationAccess access,
                                                       LockDeadline deadline) {
  const Ranges ranges = rangesOf(path);
  const bool isExclusive = access == CoordinationAccess::exclusive;
  const auto failure = [&](int code) { return std::unexpected(FileError(code, "lock", path)); };

  bool isHeld = false;
  for (Held& outer : held()) {
    if (outer.access != ranges.access || outer.lockFile != lockFile) continue;
    isHeld = true;
    if (!isExclusive || outer.isExclusive) return CoordinationLock(Ending::nothing);
  }
  if (isHeld) {
    // The outer reader's own lock becomes exclusive until the inner writer ends.
    for (Held& outer : held()) {
      if (outer.access != ranges.access || outer.lockFile != lockFile) continue;
      if (outer.readOnlyCode != 0) return failure(outer.readOnlyCode);
      if (const int error = setLock(outer.file.get(), ranges.upgrade, 1, F_WRLCK); error != 0) {
        return failure(error == EAGAIN || error == EACCES ? EDEADLK : error);
      }
      // A place in the queue that was given up would later get the outer reader's lock.
      const auto call = lockOf(ranges.access, F_WRLCK);
      if (const int error = lockByAsking(outer.file.get(), call, deadline); error != 0) {
        setLock(outer.file.get(), ranges.upgrade, 1, F_UNLCK);
        return failure(error);
      }
      hold({lockFile, ranges.access, true, Descriptor(), 0});
      return CoordinationLock(Ending::downgrade);
    }
  }

  // A lock file that is replaced or gone every time it is opened cannot be used.
  constexpr int kMostAttempts = 1000;
  int code = EBUSY;
  for (int attempts = 0; attempts < kMostAttempts; ++attempts) {
    Descriptor file = openLockFile(lockFile);
    int readOnlyCode = 0;
    if (!file && !isExclusive && (errno == EROFS || errno == EACCES || errno == ENOSPC)) {
      readOnlyCode = errno;
      file = openFile(lockFile, O_RDONLY | O_NOFOLLOW);
      // On a read-only disk without a lock file nobody can write.
      if (!file && readOnlyCode == EROFS && errno == ENOENT) {
        hold({lockFile, ranges.access, false, Descriptor(), readOnlyCode});
        return CoordinationLock(Ending::pop);
      }
      if (!file) errno = readOnlyCode;
    }
    if (!file) return failure(errno);
    if (const int error = lockRanges(file.get(), ranges, access, deadline); error != 0) {
      return failure(error);
    }
    const Currency currency = currencyOf(file.get(), lockFile);
    if (currency == Currency::unknown) return failure(errno);
    if (currency != Currency::current) {
      code = currency == Currency::gone ? ENOENT : EBUSY;
      continue;
    }
    hold({lockFile, ranges.access, isExclusive, std::move(file), readOnlyCode});
    return CoordinationLock(Ending::release);
  }
  return failure(code);
}

CoordinationLock::~CoordinationLock() {
  if (ending_ == Ending::nothing) return;
  const Held ended = letGo();
  if (ended.forks != forkDepth()) return;  // a forked child leaves its parent's access alone
  if (ending_ != Ending::downgrade) {
    // Closing it releases nothing while a forked child, or a wait that was given up, has the file
    // open.
    if (ended.file) setLock(ended.file.get(), 0, 0, F_UNLCK);
    return;
  }
  for (const Held& outer : held()) {
    if (outer.access != ended.access || outer.lockFile != ended.lockFile || !outer.file) continue;
    setLock(outer.file.get(), ended.access, 1, F_RDLCK);
    setLock(outer.file.get(), ended.access + 1, 1, F_UNLCK);
  }
}

}  // namespace ombrix::platform::detail

// System calls and memory that fail: this program puts functions of its own in front of the C
// library's.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <utility>

#include "OmbrixCore/Data/Stores/CachedItemStore.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"

namespace {

// The call of this thread that fails next, counted down; 0 for none.
thread_local int countdown = 0;
thread_local bool allFail = false;
thread_local int code = 0;
thread_local bool hasChanged = false;  // whether a call before it has changed a file's contents
// The allocation of this thread that fails, counted down; 0 for none.
thread_local int allocation = 0;
thread_local bool allLaterFail = false;  // those after it, too

void* allocate(std::size_t size) noexcept {
  const bool isFailing = allocation == 1 || (allocation > 1 && --allocation == 1);
  if (isFailing && !allLaterFail) allocation = 0;
  return isFailing ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
}

thread_local std::function<void()> duringRead, beforeUnlink;  // called by the next one
// Part of the paths that cannot be looked at by any thread, and why.
const char* unseen = nullptr;
int unseenCode = 0;

bool fails() noexcept {
  if (!allFail && (countdown == 0 || --countdown > 0)) return false;
  errno = code;
  return true;
}

template <class... Args>
long call(long number, Args... args) noexcept {
  return fails() ? -1 : ::syscall(number, args...);
}

template <class... Args>
long change(long number, Args... args) noexcept {
  if (fails()) return -1;
  hasChanged = true;
  return ::syscall(number, args...);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* bytes = allocate(size)) return bytes;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
[[gnu::noinline]] void operator delete(void* bytes) noexcept { std::free(bytes); }
[[gnu::noinline]] void operator delete(void* bytes, std::size_t) noexcept { std::free(bytes); }

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
  if (isFailing) errno = code;
  return isFailing ? -1 : result;
}
ssize_t read(int file, void* bytes, size_t count) {
  if (const auto hook = std::exchange(duringRead, nullptr)) hook();
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
  if (const auto hook = std::exchange(beforeUnlink, nullptr)) hook();
  return static_cast<int>(change(SYS_unlinkat, AT_FDCWD, path, 0));
}
int mkdir(const char* path, mode_t mode) noexcept {
  return static_cast<int>(call(SYS_mkdirat, AT_FDCWD, path, mode));
}
int stat(const char* path, struct stat* info) noexcept {
  if (unseen != nullptr && std::strstr(path, unseen) != nullptr) {
    errno = unseenCode;
    return -1;
  }
  return static_cast<int>(call(SYS_newfstatat, AT_FDCWD, path, info, 0));
}
int fstat(int file, struct stat* info) noexcept {
  return static_cast<int>(call(SYS_fstat, file, info));
}
}

namespace ombrix {
namespace {

namespace fs = std::filesystem;
using platform::URL;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::StartsWith;

class StoreFaultTests : public ::testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(, StoreFaultTests, ::testing::Values(false, true), [](const auto& test) {
  return test.param ? "Coordinated" : "Uncoordinated";
});

// Catches a failing system call, any one of an operation, that is swallowed, leaves a mixture,
// harms another key, keeps a lock, or leaks a descriptor.
TEST_P(StoreFaultTests, EveryCallMayFail) {
  testing::ScopedDirectories directories;
  testing::RecordingLog log;
  if (GetParam()) directories.setGroupContainer(true);
  const fs::path folder = directories.dir().path() / (GetParam() ? "group" : "other") / "keyed";
  const PlistKeyedItemStore<std::string> store(URL::fileURL(folder.string(), true));
  const std::string old(300, 'o'), other(300, 'k');
  // Longer ones that fit and do not fit into the file's blocks, and a shorter one.
  const std::string replacements[] = {std::string(500, 'n'), std::string(9000, 'n'),
                                      std::string(100, 'n')};
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto earlier = fs::file_time_type::clock::now() - std::chrono::hours(1);
  store.store(other, "other").get();
  const auto before = descriptors();
  int reached = 0;

  enum class Operation { save, make, read, purge };
  for (const auto operation :
       {Operation::save, Operation::make, Operation::read, Operation::purge}) {
    for (const int failure : {ENOSPC, EIO, EACCES}) {
      for (int round = 0;; ++round) {
        const int call = 1 + round / 3;
        const std::string& fresh = replacements[round % 3];
        store.store(old, "k").get();
        if (operation == Operation::make) store.purge("k").get();
        if (operation == Operation::save) fs::last_write_time(folder / "k.data", earlier);
        std::optional<std::string> seen;
        code = failure;
        hasChanged = false;
        countdown = call;
        switch (operation) {
          case Operation::save:
          case Operation::make:
            store.store(fresh, "k").get();
            break;
          case Operation::read:
            seen = store.value("k").get();
            break;
          case Operation::purge:
            store.purge("k").get();
            break;
        }
        const bool wasReached = countdown == 0;
        countdown = 0;
        const bool isUntouched = wasReached && !hasChanged;
        const auto errors = log.takeErrors();
        const bool isThere = store.exists("k").get();
        EXPECT_THAT(
            errors,
            Each(AnyOf(
                StartsWith("Error reading the object: "), StartsWith("Error saving the object: "),
                StartsWith("Error purging the object: "), StartsWith("Error writing the object: "),
                StartsWith("Filesystem: Error creating folder: "),
                StartsWith("Data: Error saving data to file for in store: "))));
        const auto value = store.value("k").get();
        log.takeErrors();
        const std::string where = "operation " + std::to_string(static_cast<int>(operation)) +
                                  ", call " + std::to_string(call) + ", errno " +
                                  std::to_string(failure);
        EXPECT_TRUE(!value || value == old || value == fresh) << where;
        if (operation == Operation::save && isUntouched && !errors.empty()) {
          EXPECT_EQ(value, old) << where << " lost it needlessly";
        }
        if (operation == Operation::save && value == old) {
          EXPECT_EQ(fs::last_write_time(folder / "k.data"), earlier) << where << " renewed its age";
        }
        EXPECT_TRUE(operation != Operation::make || isThere == errors.empty()) << where;
        if (errors.empty()) {
          const bool isDone = operation == Operation::read    ? seen == old
                              : operation == Operation::purge ? !value
                                                              : value == fresh;
          EXPECT_TRUE(isDone) << where << " was swallowed";
        }
        if (!wasReached && round % 3 == 2) break;
        reached += wasReached ? 1 : 0;
        ASSERT_LT(call, 100);
      }
    }
  }
  EXPECT_EQ(store.value("other").get(), other);
  EXPECT_EQ(descriptors(), before);
  EXPECT_GE(reached, 9 * (5 + 6 + 4 + 2)) << "the calls no longer come through here";
}

// Catches a first read that fails for a moment and is taken for "no value", so that the next change
// costs the file's, and a later read that undoes what was set meanwhile.
TEST_P(StoreFaultTests, AFailedReadIsMadeAgain) {
  testing::ScopedDirectories directories;
  testing::RecordingLog log;
  if (GetParam()) directories.setGroupContainer(true);
  const fs::path folder = directories.dir().path() / (GetParam() ? "group" : "other");
  const URL url = URL::fileURL((folder / "launches").string());
  for (const int failure : {EMFILE, ENOMEM, EIO, EACCES}) {
    enum class Set { never, before, during };
    for (const auto set : {Set::never, Set::before, Set::during}) {
      PlistFileStore<int>(url).setValue(57);
      const CachedItemStore<int> store(url, 0);
      code = failure;
      allFail = true;
      EXPECT_EQ(store.value(), 0);
      allFail = false;
      EXPECT_THAT(log.takeErrors(),
                  ::testing::ElementsAre(StartsWith("Error reading the object: ")));
      const auto setFive = [&store] { store.setValue(5); };
      if (set == Set::before) setFive();
      if (set == Set::during) duringRead = setFive;
      const int expected = set == Set::never ? 57 : 5;
      EXPECT_EQ(store.value(), expected) << failure;
      store.setValue(store.value() + 1);
      store.flush();
      EXPECT_EQ(PlistFileStore<int>(url).value(), expected + 1) << failure;
    }
  }
}

/// Calls an operation with each of its allocations failing in turn, and a check after each.
void withoutMemory(const std::function<void()>& operation, const std::function<void()>& check) {
  for (const bool isLasting : {false, true}) {
    bool isReached = true;
    for (int number = 1; isReached; ++number) {
      SCOPED_TRACE(::testing::Message() << "allocation " << number << (isLasting ? " on" : ""));
      ASSERT_LT(number, 2000);
      allLaterFail = isLasting;
      allocation = number + 1;
      try {
        operation();
      } catch (const std::bad_alloc&) {
      }
      isReached = allocation <= 1;
      allocation = 0;
      check();
    }
  }
}

// Catches a first read that stops the program for want of memory, or is not made again.
TEST(StoreMemoryTests, AReadWithoutMemoryIsMadeAgain) {
  const testing::ScopedDir dir;
  testing::RecordingLog log;
  const URL url = URL::fileURL((dir.path() / "item").string());
  const std::string kept(100, 'k'), fallback(100, 'f');
  PlistFileStore<std::string>(url).setValue(kept);
  std::optional<CachedItemStore<std::string>> store;
  const auto begin = [&] { store.emplace(url, fallback); };
  begin();
  withoutMemory([&] { static_cast<void>(store->value()); },
                [&] {
                  EXPECT_EQ(store->value(), kept);
                  begin();
                });
  log.takeErrors();
}

// Catches a set that failed for want of memory, after which nothing is written any more.
TEST(StoreMemoryTests, WhatIsSetAfterASetThatFailedIsWritten) {
  const testing::ScopedDir dir;
  testing::RecordingLog log;
  const URL url = URL::fileURL((dir.path() / "item").string());
  std::optional<CachedItemStore<std::string>> store;
  const auto begin = [&] {
    store.emplace(url, "");
    static_cast<void>(store->value());
  };
  begin();
  int count = 0;
  withoutMemory([&] { store->setValue(std::string(100, 'n')); },
                [&] {
                  const std::string later = "later " + std::to_string(++count);
                  store->setValue(later);
                  EXPECT_TRUE(testing::eventually([&] {
                    return PlistFileStore<std::string>(url).value() == later;
                  })) << count;
                  begin();
                });
  log.takeErrors();
}

// Catches a setting that failed once for want of memory and is never written again.
TEST(StoreMemoryTests, ASettingThatFailedIsWrittenTheNextTime) {
  const testing::ScopedDir dir;
  std::shared_ptr<platform::UserDefaults> defaults;
  std::string key;
  int count = 0;
  const auto open = [&] {
    return platform::UserDefaults::make({.folder = dir.path(), .domain = "settings"});
  };
  const auto begin = [&] {
    key = "a key of more than a few letters " + std::to_string(++count);
    defaults = open();
    defaults->setObject(count, "other");
    EXPECT_TRUE(defaults->synchronize());
  };
  begin();
  withoutMemory([&] { defaults->setObject("first", key); },
                [&] {
                  defaults->setObject("second", key);
                  EXPECT_TRUE(defaults->synchronize());
                  EXPECT_EQ(open()->stringForKey(key), "second");
                  begin();
                });
  withoutMemory([&] { defaults->synchronize(); },
                [&] {
                  EXPECT_TRUE(defaults->synchronize());
                  EXPECT_EQ(open()->integerForKey("other"), count);
                  defaults->setObject(++count, "other");
                });
}

// Catches the later of two processes that remove a broken file, and takes with it what was stored
// after the first.
TEST(StoreRemovalTests, WhatIsStoredBetweenTwoRemovalsStays) {
  const testing::ScopedDir dir;
  testing::RecordingLog log;
  const auto path = dir.write("item", "broken");
  const PlistFileStore<std::string> store(URL::fileURL(path.string()));
  bool isStored = false;
  beforeUnlink = [&] {
    EXPECT_EQ(testing::ChildProcess({STORE_AGENT, "read", path, "0", "-"}).wait(), 3);
    if (fs::exists(path)) return;
    isStored = true;
    dir.write("item", "new");
  };
  EXPECT_EQ(store.value(), std::nullopt);
  EXPECT_EQ(beforeUnlink, nullptr);
  EXPECT_EQ(fs::exists(path), isStored);
  EXPECT_THAT(log.takeErrors(), ::testing::SizeIs(1));
}

// Catches a wait without end for a lock file that cannot be told from another.
TEST(StoreLockTests, ALockFileThatCannotBeSeenIsAnError) {
  testing::ScopedDirectories directories;
  testing::RecordingLog log;
  directories.setGroupContainer(true);
  const DataFileStore store(URL::fileURL((directories.dir().path() / "group/item").string()));
  for (const int failure : {EIO, ENOENT}) {
    unseenCode = failure;
    unseen = ".filecoordination";
    EXPECT_EQ(store.value(), std::nullopt);
    unseen = nullptr;
    EXPECT_THAT(log.takeErrors(),
                ::testing::ElementsAre(AllOf(StartsWith("Error reading the object: "),
                                             ::testing::HasSubstr(std::strerror(failure)))));
  }
}

}  // namespace
}  // namespace ombrix

// System calls and memory that fail.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>

#include "OmbrixCore/Data/Stores/CachedItemStore.hpp"
#include "OmbrixCore/Data/Stores/FailingCalls.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"

namespace {

// The allocation of this thread that fails, counted down; 0 for none.
thread_local int allocation = 0;
thread_local bool allLaterFail = false;  // those after it, too

// The same on the thread that writes settings.
std::atomic<int> writersAllocation = 0;

bool isWriter() noexcept {
  char name[16] = {};
  ::pthread_getname_np(::pthread_self(), name, sizeof name);
  return std::strcmp(name, "ombrix-defaults") == 0;
}

void* allocate(std::size_t size) noexcept {
  if (writersAllocation > 0 && isWriter() && --writersAllocation == 0) return nullptr;
  const bool isFailing = allocation == 1 || (allocation > 1 && --allocation == 1);
  if (isFailing && !allLaterFail) allocation = 0;
  return isFailing ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* bytes = allocate(size)) return bytes;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
[[gnu::noinline]] void operator delete(void* bytes) noexcept { std::free(bytes); }
[[gnu::noinline]] void operator delete(void* bytes, std::size_t) noexcept { std::free(bytes); }

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
      testing::failingCalls() = {.allFail = true, .code = failure};
      EXPECT_EQ(store.value(), 0);
      testing::failingCalls() = {};
      EXPECT_THAT(log.takeErrors(),
                  ::testing::ElementsAre(StartsWith("Error reading the object: ")));
      const auto setFive = [&store] { store.setValue(5); };
      if (set == Set::before) setFive();
      if (set == Set::during) testing::callHooks().duringRead = setFive;
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
  int priors = 0, dids = 0;
  const auto token =
      defaults->observe("other", platform::KeyValueObservingOptions::prior,
                        [&](const auto& change) { ++(change.isPrior ? priors : dids); });
  withoutMemory([&] { defaults->setObject(++count, "other"); }, [&] { EXPECT_EQ(priors, dids); });
  EXPECT_GT(dids, 0);
}

// Catches want of memory on the writer's thread that ends the program or costs what was set.
TEST(StoreMemoryTests, WhatCouldNotBeWrittenForWantOfMemoryIsWrittenLater) {
  const testing::ScopedDir dir;
  const auto open = [&] {
    return platform::UserDefaults::make({.folder = dir.path(), .domain = "settings"});
  };
  bool hasFailed = true;
  for (int number = 1; hasFailed; ++number) {
    SCOPED_TRACE(number);
    ASSERT_LT(number, 2000);
    const auto defaults = open();
    EXPECT_NE(defaults->integerForKey("n"), number);
    writersAllocation = number;
    defaults->setObject(number, "n");
    EXPECT_TRUE(testing::eventually(
        [&] { return writersAllocation == 0 || open()->integerForKey("n") == number; }));
    hasFailed = writersAllocation.exchange(0) <= 0;
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(open()->integerForKey("n"), number);
  }
}

// Catches the later of two processes that remove a broken file, and takes with it what was stored
// after the first.
TEST(StoreRemovalTests, WhatIsStoredBetweenTwoRemovalsStays) {
  const testing::ScopedDir dir;
  testing::RecordingLog log;
  const auto path = dir.write("item", "broken");
  const PlistFileStore<std::string> store(URL::fileURL(path.string()));
  bool isStored = false;
  auto& beforeUnlink = testing::callHooks().beforeUnlink;
  beforeUnlink = [&] {
    EXPECT_EQ(testing::ChildProcess({TEST_AGENT, "stores", "read", path, "0", "-"}).wait(), 3);
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
    testing::hidePaths(".filecoordination", failure);
    EXPECT_EQ(store.value(), std::nullopt);
    testing::hidePaths(nullptr, 0);
    EXPECT_THAT(log.takeErrors(),
                ::testing::ElementsAre(AllOf(StartsWith("Error reading the object: "),
                                             ::testing::HasSubstr(std::strerror(failure)))));
  }
}

}  // namespace
}  // namespace ombrix

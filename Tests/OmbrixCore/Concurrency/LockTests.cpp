#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "OmbrixCore/Concurrency/Atomic.hpp"
#include "OmbrixCore/Concurrency/DispatchOnce.hpp"
#include "OmbrixCore/Concurrency/PThreadMutex.hpp"
#include "OmbrixCore/Concurrency/UnfairLock.hpp"

namespace ombrix {
namespace {

template <class Work>
void onThreads(int count, Work work) {
  std::latch start(count);
  std::vector<std::jthread> threads;
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      work();
    });
  }
}

template <class Mutex>
class ScopedMutexTests : public ::testing::Test {};
using Mutexes = ::testing::Types<PThreadMutex, UnfairLock>;
TYPED_TEST_SUITE(ScopedMutexTests, Mutexes);

// Catches a closure that runs without the lock, and a lock that an exception leaves behind.
TYPED_TEST(ScopedMutexTests, TrySyncRunsOnlyWhenTheLockIsFree) {
  TypeParam mutex;
  auto tryElsewhere = [&] {
    std::optional<int> answer;
    bool didRun = false;
    std::thread([&] {
      answer = mutex.trySync([] { return 7; });
      didRun = mutex.trySync([] {});
    }).join();
    EXPECT_EQ(answer.has_value(), didRun);
    return answer;
  };
  EXPECT_EQ(mutex.sync([&] { return tryElsewhere(); }), std::nullopt);
  EXPECT_THROW(mutex.sync([]() -> int { throw std::runtime_error("x"); }), std::runtime_error);
  EXPECT_THROW(mutex.trySync([]() -> int { throw std::runtime_error("x"); }), std::runtime_error);
  EXPECT_EQ(tryElsewhere(), 7);
}

// Catches lost wake-ups and missing exclusion under contention.
TYPED_TEST(ScopedMutexTests, ContendedSectionsLoseNothing) {
  TypeParam mutex;
  int count = 0;
  onThreads(8, [&] {
    for (int i = 0; i < 5'000; ++i) mutex.sync([&] { ++count; });
  });
  EXPECT_EQ(count, 40'000);
}

// Catches the numeric mix-up of mutex types: a recursive mutex that is not, or a normal one that
// is.
TEST(PThreadMutexTests, OnlyTheRecursiveTypeLocksTwice) {
  PThreadMutex recursive(PThreadMutex::PThreadMutexType::recursive);
  PThreadMutex normal(PThreadMutex::PThreadMutexType::normal);
  EXPECT_TRUE(recursive.sync([&] { return recursive.trySync([] {}); }));
  EXPECT_FALSE(normal.sync([&] { return normal.trySync([] {}); }));
}

// Catches updates lost by `mutate`, and a box that cannot be read from inside it.
TEST(AtomicTests, MutateIsOneCriticalSectionAndMayRead) {
  Atomic<int> box(0);
  onThreads(8, [&] {
    for (int i = 0; i < 1'000; ++i)
      box.projectedValue().mutate([&](int& v) { v = box.wrappedValue() + 1; });
  });
  EXPECT_EQ(box.wrappedValue(), 8'000);
}

// Catches a modify accessor that became one critical section: another thread's write in between is
// lost.
TEST(AtomicTests, ModifyIsGetThenSet) {
  Atomic<int> box(1);
  box.modifyWrappedValue([&](int& value) {
    std::thread([&] { box.setWrappedValue(100); }).join();
    ++value;
  });
  EXPECT_EQ(box.wrappedValue(), 2);
}

// Catches a second run, and callers that return before the first block has finished.
TEST(DispatchOnceTests, OneBlockRunsAndEveryoneWaitsForIt) {
  for (int round = 0; round < 50; ++round) {
    DispatchOnce once;
    int value = 0;
    onThreads(4, [&] {
      once.perform([&] {
        std::this_thread::yield();
        ++value;
      });
      EXPECT_EQ(value, 1);
    });
  }
  EXPECT_DEATH(DispatchOnce().perform([] { throw std::runtime_error("spilt"); }),
               "an exception left a block that runs once: spilt");
}

}  // namespace
}  // namespace ombrix

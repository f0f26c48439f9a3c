#include "OmbrixPlatform/Concurrency/Events.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <latch>
#include <semaphore>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Error.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

// Catches timers that fire out of order, early, or at a clock of their own, and delayed jobs that
// run on another queue.
TEST(EventsTests, TimersFireInOrderWhenTheClockReachesThem) {
  const auto clock = std::make_shared<testing::ManualClock>();
  const testing::ScopedService scoped(services().clock, clock);
  std::counting_semaphore<> fired{0};
  std::vector<int> order;
  std::vector<EventToken> tokens;
  const auto queue = DispatchQueue::serial("delayed");
  queue->asyncAfter(40s, [&] {
    order.push_back(queue->isCurrent() ? 40 : 0);
    fired.release();
  });
  for (const int seconds : {30, 10, 20}) {
    tokens.push_back(after(std::chrono::seconds(seconds), [&, seconds] {
      order.push_back(seconds);
      fired.release();
    }));
  }
  for (int i = 0; i < 4; ++i) {
    clock->advance(10s);
    fired.acquire();
  }
  EXPECT_EQ(order, (std::vector{10, 20, 30, 40}));
}

// Catches delays whose deadline overflows and is due at once.
TEST(EventsTests, EndlessDelaysNeverFireAndNegativeOnesAtOnce) {
  std::atomic<bool> wrong = false;
  const auto never = after(std::chrono::duration<double>(1e300), [&] { wrong = true; });
  std::binary_semaphore fired{0};
  const auto now = after(-5s, [&] { fired.release(); });
  fired.acquire();
  EXPECT_FALSE(wrong);
}

// Catches a handler that starts after its token is gone: the owner's memory would be gone too.
TEST(EventsTests, NothingStartsAfterTheTokenIsDestroyed) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 300; ++i) {
        auto owner = std::make_unique<int>(0);
        auto token = after(std::chrono::microseconds(i % 50), [&value = *owner] { ++value; });
        if (i % 3 == 0) std::this_thread::yield();
        token.cancel();
        owner.reset();  // the sanitizers see a late call
      }
    });
  }
}

// Catches a deadlock of a handler that destroys its own token, and a handler freed under its feet.
TEST(EventsTests, AHandlerMayDestroyItsOwnToken) {
  std::binary_semaphore done{0};
  const auto token = std::make_shared<EventToken>();
  std::latch assigned(1);
  *token = after(0s, [token, &done, &assigned, guard = std::make_shared<int>(1)] {
    assigned.wait();
    *token = {};
    EXPECT_EQ(*guard, 1);
    done.release();
  });
  assigned.count_down();
  done.acquire();
}

// Catches readiness that is reported once only, after the end of the watch, or mixed up when a
// descriptor number is used again.
TEST(EventsTests, DescriptorsAreWatchedUntilTheTokenGoes) {
  for (int round = 0; round < 50; ++round) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::counting_semaphore<> received{0};
    auto token = whenReadable(ends[0], [&, in = ends[0]] {
      char byte = 0;
      if (::read(in, &byte, 1) == 1) received.release();
    });
    for (int i = 0; i < 3; ++i) {
      ASSERT_EQ(::write(ends[1], "x", 1), 1);
      received.acquire();
    }
    token = {};
    ASSERT_EQ(::write(ends[1], "x", 1), 1);
    EXPECT_FALSE(received.try_acquire());
    ::close(ends[0]);
    ::close(ends[1]);
  }
}

// Catches a watch on something that can never be waited for passing in silence.
TEST(EventsTests, WhatCannotBeWatchedThrows) {
  EXPECT_THROW((void)whenReadable(-1, [] {}), Error);
  const testing::ScopedDir dir;
  const int file = ::open(dir.write("file", "x").c_str(), 0);
  EXPECT_THROW((void)whenReadable(file, [] {}), Error);
  ::close(file);
}

[[noreturn]] void beginWithoutDescriptors() {
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  std::binary_semaphore fired{0};
  const auto timer = after(0s, [&] { fired.release(); });
  after(0s, [] { std::_Exit(4); }).cancel();
  EXPECT_THROW((void)whenReadable(STDIN_FILENO, [] {}), Error);
  ::setrlimit(RLIMIT_NOFILE, &before);
  std::_Exit(fired.try_acquire_for(60s) && !::testing::Test::HasFailure() ? 3 : 5);
}

// Catches a first timer or watch that throws at its maker, or is lost, for want of a descriptor.
TEST(EventsTests, TheFirstTimerWaitsForADescriptor) {
  if (testing::kUnderSanitizer) GTEST_SKIP() << "sanitizers need descriptors themselves";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(beginWithoutDescriptors(), ::testing::ExitedWithCode(3), "");
}

// Catches a process that hangs or crashes at exit while timers are pending and threads idle.
TEST(EventsTests, ExitWithPendingWorkIsClean) {
  EXPECT_EXIT(
      {
        static auto token = after(1h, [] {});
        std::binary_semaphore ran{0};
        const auto now = after(0s, [&] { ran.release(); });
        ran.acquire();
        std::exit(7);
      },
      ::testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace ombrix::platform

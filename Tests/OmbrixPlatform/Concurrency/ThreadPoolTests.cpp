#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <semaphore>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"

namespace ombrix::platform {
namespace {

constexpr std::size_t kFamilies = 64;
constexpr int kGenerations = 200;
constexpr std::array kLanes{DispatchPriority::high, DispatchPriority::normal, DispatchPriority::low,
                            DispatchPriority::background};

// Catches follow-ups that stay with the thread of a job which waits for them, whether or not the
// pool knows that it waits.
TEST(ThreadPoolTests, FollowUpsOfAJobThatWaitsForThemRun) {
  for (const bool poolKnows : {false, true}) {
    for (int round = 0; round < 20; ++round) {
      std::latch done(1);
      ThreadPool::shared().post([&] {
        const auto answers = std::make_shared<std::counting_semaphore<>>(0);
        for (int i = 0; i < 3; ++i) ThreadPool::shared().post([answers] { answers->release(); });
        std::optional<ThreadPool::BlockingScope> blocking;
        if (poolKnows) blocking.emplace();
        for (int i = 0; i < 3; ++i) answers->acquire();
        done.count_down();
      });
      done.wait();
    }
  }
}

// The threads that compute at once; the pool never has fewer.
std::size_t width() { return std::max<std::size_t>(std::thread::hardware_concurrency(), 4); }

// All threads of the pool are busy while the jobs are posted, so it must have no idle ones of
// earlier tests.
void checkThatEveryLaneHasItsShare() {
  constexpr std::size_t kJobs = 4'000;  // many beside the slack: a doubled share is seen
  std::atomic<bool> isOpen = false;
  std::latch together(static_cast<std::ptrdiff_t>(width()));
  std::latch done(static_cast<std::ptrdiff_t>(width() + kJobs * kLanes.size()));
  for (std::size_t i = 0; i < width(); ++i) {
    ThreadPool::shared().post(
        [&] {
          together.count_down();
          while (!isOpen) std::this_thread::yield();
          done.count_down();
        },
        DispatchPriority::high);
  }
  together.wait();
  std::atomic<std::size_t> started = 0;
  std::array<std::array<std::size_t, kJobs>, kLanes.size()> place{};
  for (std::size_t lane = kLanes.size(); lane-- > 0;) {
    for (std::size_t i = 0; i < kJobs; ++i) {
      ThreadPool::shared().post(
          [&, lane, i] {
            place[lane][i] = ++started;
            done.count_down();
          },
          kLanes[lane]);
    }
  }
  isOpen = true;
  done.wait();
  // Between taking a job and writing its place down a thread may be overtaken.
  const std::size_t slack = 100;
  const std::array<std::size_t, 4> turns{2, 8, 16, 32};
  for (std::size_t lane = 1; lane < kLanes.size(); ++lane) {
    for (std::size_t i = 0; i < 12; ++i) {
      EXPECT_LE(place[lane][i], (i + 1) * (turns[lane] + 3) + slack) << "starved: " << lane;
    }
  }
  const auto before = [&](std::size_t lane) {
    return static_cast<std::size_t>(std::count_if(place[lane].begin(), place[lane].end(),
                                                  [&](auto at) { return at < place[0].back(); }));
  };
  EXPECT_LE(before(1), kJobs / 7 + slack);
  EXPECT_LE(before(3), kJobs / 31 + slack);
}

// The same threads: serial queues whose turns would be as good as one job each.
void checkThatTurnsEndForMoreUrgentJobs() {
  constexpr std::size_t kUrgent = 20;  // fewer than after which the background has its turn
  std::atomic<bool> isOpen = false;
  std::atomic<std::size_t> started = 0;
  std::latch together(static_cast<std::ptrdiff_t>(width()));
  std::latch done(static_cast<std::ptrdiff_t>(width()));
  std::vector<std::shared_ptr<DispatchQueue>> queues;
  for (std::size_t i = 0; i < width(); ++i) {
    queues.push_back(DispatchQueue::serial("turns", QualityOfService::background));
    queues.back()->async([&] {
      together.count_down();
      while (!isOpen) std::this_thread::yield();
    });
    queues.back()->async([&] {
      EXPECT_GE(started + width(), kUrgent) << "a turn of a lower lane goes on";
      done.count_down();
    });
  }
  together.wait();
  for (std::size_t i = 0; i < kUrgent; ++i) {
    ThreadPool::shared().post([&] { ++started; }, DispatchPriority::high);
  }
  isOpen = true;
  done.wait();
}

// Catches lanes that starve, and lower lanes that pass higher ones beyond their share.
TEST(ThreadPoolTests, EveryLaneHasItsShare) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        checkThatEveryLaneHasItsShare();
        checkThatTurnsEndForMoreUrgentJobs();
        std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

// Catches a pool that takes computing for blocking and adds threads to it.
TEST(ThreadPoolTests, ComputingMakesNoThreads) {
  const auto before = ThreadPool::shared().threadCount();
  constexpr int kJobs = 60;
  std::latch done(kJobs);
  std::atomic<std::size_t> most = 0;
  for (int i = 0; i < kJobs; ++i) {
    ThreadPool::shared().post([&] {
      const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(10);
      while (std::chrono::steady_clock::now() < end) {
      }
      most = std::max<std::size_t>(most, ThreadPool::shared().threadCount());
      done.count_down();
    });
  }
  done.wait();
  EXPECT_LE(most, std::max(before, width()));
}

// Catches follow-ups that stay with a job which goes on computing while threads are idle.
TEST(ThreadPoolTests, IdleThreadsTakeOverWhatAComputingJobPosts) {
  std::latch done(1);
  ThreadPool::shared().post([&] {
    std::atomic<int> ran = 0;
    for (int i = 0; i < 3; ++i) ThreadPool::shared().post([&] { ++ran; });
    while (ran < 3) std::this_thread::yield();
    done.count_down();
  });
  done.wait();
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// Runs a closure while no thread can be made: there is no room for another stack.
void withoutNewThreads(const std::function<void()>& closure) {
  rlimit before{};
  ::getrlimit(RLIMIT_AS, &before);
  std::ifstream statm("/proc/self/statm");
  rlim_t pages = 0;
  statm >> pages;
  rlimit tight = before;
  tight.rlim_cur = pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + (2U << 20);
  ::setrlimit(RLIMIT_AS, &tight);
  closure();
  ::setrlimit(RLIMIT_AS, &before);
}

[[noreturn]] void runAJobAfterAShortage(bool poolKnows) {
  withoutNewThreads([] { ThreadPool::shared().post([] {}); });  // nor is there one that watches
  const auto threads = static_cast<std::ptrdiff_t>(width());
  std::latch together(threads), blocked(threads), never(1);
  std::atomic<bool> isOpen = false;
  for (std::ptrdiff_t i = 0; i < threads; ++i) {
    ThreadPool::shared().post([&] {
      together.count_down();
      while (!isOpen) std::this_thread::yield();
      std::optional<ThreadPool::BlockingScope> blocking;
      if (poolKnows) blocking.emplace();
      blocked.count_down();
      never.wait();
    });
  }
  together.wait();
  withoutNewThreads([&] {
    ThreadPool::shared().post([] { std::_Exit(3); });
    isOpen = true;
    blocked.wait();
  });
  std::binary_semaphore(0).try_acquire_for(std::chrono::seconds(60));
  std::_Exit(4);
}

// Catches blocked threads that nobody replaces once a shortage is over.
TEST(ThreadPoolTests, ThreadsMissingInAShortageAreMadeAfterIt) {
  for (const bool poolKnows : {false, true}) {
    EXPECT_EXIT(runAJobAfterAShortage(poolKnows), ::testing::ExitedWithCode(3), "") << poolKnows;
  }
}

// Catches a failed thread creation that throws at the poster or disables a queue for good.
TEST(ThreadPoolTests, AThreadThatCannotBeMadeIsTriedAgain) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const bool isMain : {false, true}) {
    EXPECT_EXIT(
        {
          const auto post = [&](Job job) {
            isMain ? DispatchQueue::main().async(std::move(job))
                   : ThreadPool::shared().post(std::move(job));
          };
          std::latch done(2);
          withoutNewThreads([&] { post([&] { done.count_down(); }); });
          const bool hadNone = ThreadPool::shared().threadCount() == 0;
          post([&] { done.count_down(); });
          done.wait();
          std::_Exit(hadNone ? 3 : 4);
        },
        ::testing::ExitedWithCode(3), "")
        << isMain;
  }
}

Async<void> nothing() { co_return; }

// Catches what waits for a thread when nobody posts any more: whoever waits is to try again.
TEST(ThreadPoolTests, WaitsEndAfterAShortageWithoutAnotherPost) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto queue = NSOperationQueue::make("shortage");
  std::optional<Task<void>> task;
  std::latch done(2);
  const std::function<void()> begin[] = {[&] { task = nothing().start(); },
                                         [&] { queue->addOperation([] {}); }};
  const std::function<void()> wait[] = {[&] { task->get(); },
                                        [&] { queue->waitUntilAllOperationsAreFinished(); }};
  for (const int i : {0, 1}) {
    EXPECT_EXIT(
        {
          withoutNewThreads([&] {
            begin[i]();
            DispatchQueue::main().async([&] { done.count_down(); });
            afterUncancellably(deadlineAfter(std::chrono::seconds(0)), [&] { done.count_down(); });
          });
          const bool hadNone = ThreadPool::shared().threadCount() == 0;
          wait[i]();
          done.wait();
          std::_Exit(hadNone ? 3 : 4);
        },
        ::testing::ExitedWithCode(3), "")
        << i;
  }
}

#endif

// Catches jobs that are lost or run twice when jobs post others, in all lanes, while threads of
// the pool go to sleep and are woken.
TEST(ThreadPoolTests, EveryJobOfManyGenerationsRunsOnce) {
  std::vector<std::atomic<int>> runs(kFamilies);
  std::latch ended(kFamilies);
  struct Family {
    std::vector<std::atomic<int>>& runs;
    std::latch& ended;
    std::size_t index;

    void live(int generation) const {
      ++runs[index];
      if (generation == kGenerations) return ended.count_down();
      const auto lane = kLanes[(index + static_cast<std::size_t>(generation)) % kLanes.size()];
      ThreadPool::shared().post([*this, generation] { live(generation + 1); }, lane);
    }
  };
  std::vector<std::jthread> posters;
  for (std::size_t i = 0; i < kFamilies; ++i) {
    posters.emplace_back([&, i] {
      ThreadPool::shared().post([family = Family{runs, ended, i}] { family.live(1); });
    });
  }
  ended.wait();
  for (const auto& each : runs) EXPECT_EQ(each, kGenerations);
}

}  // namespace
}  // namespace ombrix::platform

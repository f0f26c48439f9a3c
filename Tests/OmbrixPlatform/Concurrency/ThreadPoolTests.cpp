#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Concurrency/MainLoop.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

constexpr std::array kLanes{DispatchPriority::high, DispatchPriority::normal, DispatchPriority::low,
                            DispatchPriority::background};

// Catches follow-ups that stay with the thread of a job which waits for them, whether or not the
// pool knows that it waits, or which goes on computing.
TEST(ThreadPoolTests, FollowUpsOfAJobThatNeedsThemRun) {
  enum class Kind { waits, declaresItsWait, computes };
  for (const auto kind : {Kind::waits, Kind::declaresItsWait, Kind::computes}) {
    for (int round = 0; round < 20; ++round) {
      std::latch done(1);
      ThreadPool::shared().post([&] {
        const auto answers = std::make_shared<std::counting_semaphore<>>(0);
        for (int i = 0; i < 3; ++i) ThreadPool::shared().post([answers] { answers->release(); });
        std::optional<ThreadPool::BlockingScope> blocking;
        if (kind == Kind::declaresItsWait) blocking.emplace();
        for (int i = 0; i < 3; ++i) {
          if (kind != Kind::computes) {
            answers->acquire();
          } else {
            while (!answers->try_acquire()) std::this_thread::yield();
          }
        }
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
  std::array<std::atomic<std::size_t>, kLanes.size()> started{};
  std::array<std::size_t, kLanes.size()> passed{};  // those before the last one of the highest lane
  for (std::size_t lane = kLanes.size(); lane-- > 0;) {
    for (std::size_t i = 0; i < kJobs; ++i) {
      ThreadPool::shared().post(
          [&, lane, isLast = lane == 0 && i + 1 == kJobs] {
            ++started[lane];
            if (isLast) std::copy(started.begin(), started.end(), passed.begin());
            done.count_down();
          },
          kLanes[lane]);
    }
  }
  isOpen = true;
  done.wait();
  // Between taking a job and counting it a thread may be overtaken.
  const std::size_t slack = 100;
  const std::array<std::size_t, 4> patience{0, 7, 15, 31};
  for (std::size_t lane = 1; lane < kLanes.size(); ++lane) {
    EXPECT_GE(passed[lane] + slack, kJobs / (patience[lane] + 3)) << "starved: " << lane;
    EXPECT_LE(passed[lane], kJobs / patience[lane] + slack) << "beyond its share: " << lane;
  }
}

// The same threads: serial queues whose turns would be as good as one job each.
void checkThatTurnsEndForMoreUrgentJobs() {
  constexpr std::size_t kUrgent = 20;  // fewer than after which the background has its turn
  std::atomic<bool> isOpen = false;
  std::atomic<std::size_t> started = 0;
  std::latch together(static_cast<std::ptrdiff_t>(width()));
  std::latch done(static_cast<std::ptrdiff_t>(width() + kUrgent));
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
    ThreadPool::shared().post(
        [&] {
          ++started;
          done.count_down();
        },
        DispatchPriority::high);
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

#if !defined(__SANITIZE_THREAD__)  // which lets no forked child make threads

// Catches a child that a job forks and that runs its parent's jobs, or hangs at a lock or for want
// of the threads that did not come along.
TEST(ThreadPoolTests, AForkedChildBeginsAnew) {
  std::array<int, 2> answers{};
  ASSERT_EQ(::pipe(answers.data()), 0);
  const pid_t parent = ::getpid();
  const auto answer = [to = answers[1]](const char* text) { return ::write(to, text, 1) == 1; };
  const auto isForked = std::make_shared<std::binary_semaphore>(0);
  ThreadPool::shared().post([=] {
    for (int i = 0; i < 1000; ++i) {
      ThreadPool::shared().post([=] {
        if (::getpid() != parent) answer("x");
      });
    }
    if (::fork() != 0) return isForked->release();
    ::alarm(60);
    {
      const ThreadPool::BlockingScope blocking;
    }
    const auto isDone = std::make_shared<std::binary_semaphore>(0);
    ThreadPool::shared().post([isDone] { isDone->release(); });
    isDone->acquire();
    ::_exit(answer(".") ? 0 : 1);
  });
  isForked->acquire();
  ::close(answers[1]);
  std::string all;
  for (char each = 0; ::read(answers[0], &each, 1) == 1;) all += each;
  EXPECT_EQ(all, ".");
  ::close(answers[0]);
}

#endif

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

std::atomic<int> failuresLeft{0};  // of making a thread

Async<void> nothing() { co_return; }

// Ends the process with 3.
void succeed() { std::_Exit(3); }

// No thread can be made for longer than posts wait for one; then `wait` is to end by itself.
void waitAfterAShortage(const std::function<void()>& begin, const std::function<void()>& wait) {
  failuresLeft = INT_MAX;
  begin();
  failuresLeft = 0;
  wait();
  succeed();
}

// All threads are blocked when one more is wanted that cannot be made.
void blockEveryThreadInAShortage(bool poolKnows) {
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
  failuresLeft = INT_MAX;
  ThreadPool::shared().post(succeed);
  isOpen = true;
  blocked.wait();
  failuresLeft = 0;
  never.wait();
}

// Catches a thread that could not be made and is not tried again by itself, one that disables the
// pool, the main queue or the events for good, and a failure that throws at whoever posts.
TEST(ThreadPoolTests, WhatNeedsAThreadGetsItAfterAShortage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto queue = NSOperationQueue::make("shortage");
  std::optional<Task<void>> task;
  const auto loop = std::make_shared<MainLoop>();
  struct Case {
    const char* name;
    std::vector<int> failures;
    std::function<void()> begin;
  };
  const Case cases[] = {
      {"pool", {1, 2, 30}, [] { ThreadPool::shared().post(succeed); }},
      {"main queue", {1, 2, 30}, [] { DispatchQueue::main().async(succeed); }},
      {"main loop of a host", {1, 2, 30}, [&] { loop->post(succeed); }},
      {"timer", {1, 2, 30}, [] { afterUncancellably(deadlineAfter(0s), succeed); }},
      {"blocked threads", {0}, [] { blockEveryThreadInAShortage(false); }},
      {"threads whose blocking is declared", {0}, [] { blockEveryThreadInAShortage(true); }},
      {"wait for a task",
       {0},
       [&] { waitAfterAShortage([&] { task = nothing().start(); }, [&] { task->get(); }); }},
      {"wait for operations",
       {0},
       [&] {
         waitAfterAShortage([&] { queue->addOperation([] {}); },
                            [&] { queue->waitUntilAllOperationsAreFinished(); });
       }},
  };
  for (const auto& [name, failures, begin] : cases) {
    for (const int count : failures) {
      EXPECT_EXIT(
          {
            failuresLeft = count;
            begin();
            std::binary_semaphore(0).try_acquire_for(60s);
          },
          ::testing::ExitedWithCode(3), "")
          << name << ", " << count;
    }
  }
}

#endif

}  // namespace
}  // namespace ombrix::platform

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// In the place of the system's, which it calls.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*run)(void*), void* argument) noexcept {
  using ombrix::platform::failuresLeft;
  static const auto make =
      reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
  if (failuresLeft > 0) {
    --failuresLeft;
    return EAGAIN;
  }
  return make(thread, attributes, run, argument);
}

#endif

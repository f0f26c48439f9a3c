#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <latch>
#include <memory>
#include <optional>
#include <semaphore>
#include <thread>
#include <vector>

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

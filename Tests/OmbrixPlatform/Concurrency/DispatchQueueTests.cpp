#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/MainLoop.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/Waiting.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"
#include "OmbrixPlatform/Publishers/AnyCancellable.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/HeldExecutor.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

// Catches reordering, overlap and lost jobs when many threads post to one serial queue, and jobs
// that vanish with the last reference to it.
TEST(DispatchQueueTests, ASerialQueueKeepsTheOrderOfEachPoster) {
  constexpr int kThreads = 8, kJobs = 2'000;
  auto queue = DispatchQueue::serial("serial");
  std::vector<std::vector<int>> seen(kThreads);  // guarded by the queue alone
  {
    std::vector<std::jthread> posters;
    for (int t = 0; t < kThreads; ++t) {
      posters.emplace_back([&, t] {
        for (int i = 0; i < kJobs; ++i) {
          queue->async([&, t, i] { seen[static_cast<std::size_t>(t)].push_back(i); });
        }
      });
    }
  }
  std::latch done(1);
  queue->async([&] { done.count_down(); });
  queue = nullptr;
  done.wait();
  for (const auto& numbers : seen) {
    ASSERT_EQ(numbers.size(), kJobs);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
  }
}

// Catches a barrier that overlaps what was posted before or after it, and jobs between barriers
// that do not run side by side.
TEST(DispatchQueueTests, ABarrierSeparatesBeforeFromAfter) {
  const auto queue = DispatchQueue::concurrent("concurrent");
  std::atomic<int> before = 0, after = 0, running = 0;
  std::latch together(20), done(200);
  for (int round = 0; round < 5; ++round) {
    for (int i = 0; i < 20; ++i) {
      queue->async([&, round] {
        ++running;
        if (round == 0) together.arrive_and_wait();
        --running;
        ++before;
        done.count_down();
      });
    }
    queue->asyncBarrier([&, round] {
      EXPECT_EQ(running, 0);
      EXPECT_EQ(before, 20 * (round + 1));
      EXPECT_EQ(after, 20 * round);
    });
    for (int i = 0; i < 20; ++i) {
      queue->async([&] {
        ++after;
        done.count_down();
      });
    }
    queue->asyncBarrier([] {});
  }
  done.wait();
}

// Catches a `sync` that loses results or exceptions, or leaves an idle queue stuck.
TEST(DispatchQueueTests, SyncHandsOverResultsAndExceptions) {
  for (const auto& queue : {DispatchQueue::serial("s"), DispatchQueue::concurrent("c")}) {
    EXPECT_EQ(queue->sync([&] { return queue->isCurrent() ? 5 : 0; }), 5);
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("x"); }), std::runtime_error);
    EXPECT_EQ(queue->sync([] { return std::this_thread::get_id(); }), std::this_thread::get_id())
        << "a hop that nothing asks for, and that may wait for a thread";
    EXPECT_FALSE(queue->isCurrent());
  }
}

// Catches silent deadlocks: a queue that waits for itself.
TEST(DispatchQueueTests, WaitingForOneselfStopsTheProgram) {
  const auto serial = DispatchQueue::serial("mine");
  EXPECT_DEATH(serial->sync([&] { serial->sync([] {}); }), "the serial queue it runs on: mine");
  const auto ours = DispatchQueue::concurrent("ours");
  const auto wait = [&] { ours->sync([] {}); };
  EXPECT_DEATH(
      {
        ours->asyncBarrier(wait);
        ours->sync([] {});
      },
      "the concurrent queue it runs on, across a barrier: ours");
  EXPECT_DEATH(ours->sync([&] {
    ours->asyncBarrier([] {});
    wait();
  }),
               "the concurrent queue it runs on, across a barrier: ours");
  for (const bool pumps : {true, false}) {
    EXPECT_DEATH(DispatchQueue::main().sync([&] {
      pumps ? static_cast<void>(MainLoop::shared()->pump()) : MainLoop::shared()->run();
    }),
                 "the main queue was pumped or run inside one of its own jobs");
  }
  EXPECT_DEATH(
      {
        MainLoop::shared()->pump();
        DispatchQueue::main().sync([] {});
      },
      "on the main queue by the thread that pumps it");
  EXPECT_EQ(ours->sync([&] { return ours->sync([] { return 4; }); }), 4);
  Serial actor;
  const auto block = [] { sleepFor(1h).get(); };
  const auto enter = [&]() -> Async<void> { co_await actor.run(block); };
  EXPECT_DEATH(enter().get(), "blocking wait inside a section of an actor");
}

// Catches an exception that ends a thread without a word, or is swallowed, on any path.
TEST(DispatchQueueTests, ExceptionsOutOfJobsStopTheProgramWithTheirText) {
  const auto fail = [] { throw std::runtime_error("spilt"); };
  const auto serial = DispatchQueue::serial("s");
  const auto concurrent = DispatchQueue::concurrent("c");
  struct Failing final : NSOperation {
    void main() override { throw std::runtime_error("spilt"); }
  };
  const auto operation = std::make_shared<NSOperation>();
  const std::pair<const char*, std::function<void()>> paths[] = {
      {"pool", [&] { ThreadPool::shared().post(fail); }},
      {"serial", [&] { serial->async(fail); }},
      {"concurrent", [&] { concurrent->async(fail); }},
      {"main", [&] { DispatchQueue::main().async(fail); }},
      {"actor", [&] { Serial().post(fail); }},
      {"timer", [&] { serial->asyncAfter(0s, fail); }},
      {"operation", [&] { NSOperationQueue::make()->addOperation(std::make_shared<Failing>()); }},
      {"started by hand", [&] { Failing().start(); }},
      {"barrier", [&] { NSOperationQueue::make()->addBarrierBlock(fail); }},
      {"completion block",
       [&] {
         operation->setCompletionBlock(fail);
         operation->start();
       }},
      {"observer",
       [&] {
         const auto token = operation->observe("executing", KeyValueObservingOptions::none,
                                               [&](const auto&) { fail(); });
         operation->start();
       }},
      {"signal",
       [&] {
         Signal<> signal;
         const auto token = signal.connect(fail);
         signal.send();
       }},
      {"cancellation", [&] { AnyCancellable{fail}; }},
  };
  for (const auto& [name, begin] : paths) {
    EXPECT_DEATH(
        {
          begin();
          std::binary_semaphore(0).try_acquire_for(60s);
        },
        "Fatal error: an exception left .*: spilt")
        << name;
  }
}

// Catches main-queue work that runs anywhere but on the thread that pumps, and work lost at the
// change from the library's own thread to the host's and back.
TEST(MainQueueTests, TheHostsThreadTakesOverAndHandsBack) {
  std::binary_semaphore ran{0};
  DispatchQueue::main().async([&] { ran.release(); });
  ran.acquire();  // by the library's own thread

  MainLoop& loop = *MainLoop::shared();
  loop.pump();
  std::thread::id runner;
  DispatchQueue::main().async([&] { runner = std::this_thread::get_id(); });
  while (runner == std::thread::id{}) loop.pump();
  EXPECT_EQ(runner, std::this_thread::get_id());

  DispatchQueue::main().async([&] {
    runner = {};
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(runner, std::thread::id{});
  EXPECT_NE(DispatchQueue::main().sync([] { return std::this_thread::get_id(); }),
            std::this_thread::get_id());
}

// Catches a thread that waits for ever to become the main thread, since others hand back meanwhile
// and the library's own thread never runs out of jobs.
TEST(MainQueueTests, HandingBackHoldsUpNobodyWhoTakesOver) {
  MainLoop& loop = *MainLoop::shared();
  struct Endless {
    std::atomic<bool> isOver = false;
    static void again(std::shared_ptr<Endless> self) {  // may run once more after the test
      if (self->isOver) return;
      DispatchQueue::main().async([self] { again(self); });
    }
  };
  const auto endless = std::make_shared<Endless>();
  Endless::again(endless);
  std::jthread handing([&] {
    while (!endless->isOver) loop.handBack();
  });
  for (int i = 0; i < 100; ++i) loop.pump();
  endless->isOver = true;
  handing.join();
  loop.handBack();
  DispatchQueue::main().sync([] {});
}

// Waits until nothing that an earlier test posted is under way: a turn, and one that it asked for.
void settleMainQueue() {
  for (int i = 0; i < 2; ++i) {
    std::latch isReached(1);
    MainLoop::shared()->post([&] { isReached.count_down(); });
    isReached.wait();
  }
}

// Catches a main queue that ignores the host's executor.
TEST(MainQueueTests, AHostsExecutorRunsTheMainQueue) {
  settleMainQueue();
  const auto executor = std::make_shared<testing::HeldExecutor>();
  const testing::ScopedService<Executor> scoped(services().mainExecutor, executor);
  int ran = 0;
  DispatchQueue::main().async([&] { ran += DispatchQueue::main().isCurrent() ? 1 : 100; });
  DispatchQueue::main().async([&] { ++ran; });
  EXPECT_EQ(ran, 0);
  executor->take()();
  EXPECT_EQ(ran, 2);

  // Catches a main queue that is disabled, and waits that go on, when it drops what it was given.
  DispatchQueue::main().async([&] { ran = -1; });
  executor->take() = nullptr;
  struct Refusing final : Executor {
    void post(Job) override {}
  };
  {
    const testing::ScopedService<Executor> refused(services().mainExecutor,
                                                   std::make_shared<Refusing>());
    EXPECT_THROW(DispatchQueue::main().sync([] {}), CancellationError);
  }
  DispatchQueue::main().async([&] { ++ran; });
  executor->take()();
  EXPECT_EQ(ran, 3);

  // Catches operations that are never over, and a queue of them that stands still, for the same.
  const auto operations = NSOperationQueue::make();
  operations->setMaxConcurrentOperationCount(1);
  operations->setUnderlyingQueue(DispatchQueue::main().shared_from_this());
  for (int i = 0; i < 3; ++i) {
    operations->addOperation([&] { ran = -1; });
    operations->addBarrierBlock([&] { ran = -1; });
  }
  for (int i = 0; i < 6; ++i) executor->take() = nullptr;
  operations->waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran, 3);
}

}  // namespace
}  // namespace ombrix::platform

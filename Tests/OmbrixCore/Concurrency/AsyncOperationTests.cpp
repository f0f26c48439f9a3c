#include "OmbrixCore/Concurrency/AsyncOperation.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <semaphore>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Waiting.hpp"

namespace ombrix {
namespace {

using platform::Async;
using platform::NSOperationQueue;
using enum AsyncOperation::OperationState;

class Work final : public AsyncOperation {
 public:
  explicit Work(std::function<void(Work&)> body = [](Work& work) { work.finish(); })
      : body_(std::move(body)) {}

  Async<void> execute() override {
    body_(*this);
    co_return;
  }

 private:
  const std::function<void(Work&)> body_;
};

// Catches raw values outside the enumeration that pass as states.
TEST(AsyncOperationTests, RawValuesOfStates) {
  EXPECT_EQ(AsyncOperation::operationState(0), ready);
  EXPECT_EQ(AsyncOperation::operationState(1), executing);
  EXPECT_EQ(AsyncOperation::operationState(2), finished);
  for (const int raw : {-1, 3, 1'000}) EXPECT_FALSE(AsyncOperation::operationState(raw)) << raw;
}

// Catches flags that do not follow the state, an operation that finishes by itself, and one that
// runs a second time when it is started twice.
TEST(AsyncOperationTests, TheStateDrivesEverything) {
  std::binary_semaphore started{0};
  const auto work = std::make_shared<Work>([&](Work&) { started.release(); });
  EXPECT_TRUE(work->isReady() && !work->isExecuting() && !work->isFinished());
  const auto dependency = std::make_shared<Work>();
  work->addDependency(dependency);
  std::atomic<int> changes = 0;
  const auto observed = work->observe("state", platform::KeyValueObservingOptions::newValue,
                                      [&](const auto&) { ++changes; });
  work->start();
  const auto neverReady =
      work->observe("ready", platform::KeyValueObservingOptions::newValue,
                    [&](const auto& change) { EXPECT_EQ(*change.newValue, 0); });
  dependency->finish();
  started.acquire();
  work->start();
  EXPECT_EQ(changes, 1);
  EXPECT_TRUE(!work->isReady() && work->isExecuting() && !work->isFinished());
  work->finish();
  EXPECT_TRUE(!work->isReady() && !work->isExecuting() && work->isFinished());
  for (const char* key : {"ready", "executing", "finished"}) {
    EXPECT_EQ(work->keyPathsForValuesAffectingValue(key), std::set<std::string>{"state"}) << key;
  }
  EXPECT_TRUE(work->keyPathsForValuesAffectingValue("name").empty());
}

// Catches work that runs twice, or of an operation that is finished, and changes that are announced
// twice or with wrong values, when starts, ends and cancellations race.
TEST(AsyncOperationTests, RacingTransitionsHappenOnce) {
  using enum platform::KeyValueObservingOptions;
  for (int round = 0; round < 1'000; ++round) {
    std::atomic<int> executed = 0;
    std::atomic<bool> wasReady = false;
    const auto work = std::make_shared<Work>([&](Work& self) {
      ++executed;
      if (self.isReady()) wasReady = true;
    });
    std::mutex mutex;
    std::multiset<std::string> calls;
    const auto note = [&](const auto& change) {
      const std::lock_guard lock(mutex);
      calls.insert(std::string(change.key) + std::to_string(*change.oldValue) +
                   std::to_string(*change.newValue));
    };
    const auto state = work->observe("state", newValue | oldValue, note);
    const auto cancelled = work->observe("cancelled", newValue | oldValue, note);
    {
      std::vector<std::jthread> threads;
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
          if (i < 2) {
            work->start();
          } else if (i == 2 || round % 2 == 0) {
            work->finish();
          } else {
            work->cancel();
          }
        });
      }
    }
    work->waitUntilFinished();
    const bool wasStarted = calls.contains("state01");
    while (executed < (wasStarted ? 1 : 0)) std::this_thread::yield();
    EXPECT_EQ(executed, wasStarted ? 1 : 0);
    EXPECT_FALSE(wasReady);
    const auto states = wasStarted ? std::multiset<std::string>{"state01", "state12"}
                                   : std::multiset<std::string>{"state02"};
    auto expected = states;
    if (round % 2 != 0) expected.insert("cancelled01");
    EXPECT_EQ(calls, expected);
  }
}

// Catches an exception that is swallowed, with the operation and its place in the queue held.
TEST(AsyncOperationTests, AnExceptionOutOfExecuteStopsTheProgram) {
  struct Late final : AsyncOperation {
    Async<void> execute() override {
      co_await platform::sleepFor(std::chrono::seconds(0));
      throw platform::Error("spilt");
    }
  };
  const auto queue = NSOperationQueue::make();
  for (const bool isLate : {false, true}) {
    EXPECT_DEATH(
        {
          if (isLate) {
            queue->addOperation(std::make_shared<Late>());
          } else {
            queue->addOperation(
                std::make_shared<Work>([](Work&) { throw platform::Error("spilt"); }));
          }
          queue->waitUntilAllOperationsAreFinished();
        },
        "an exception left an operation's execute\\(\\): spilt");
  }
}

// Catches work that runs inside the queue's job, or is held up by a `start` that waits for it.
TEST(AsyncOperationTests, ExecuteRunsOutsideTheQueuesJob) {
  struct Waiting final : AsyncOperation {
    Waiting(const platform::DispatchQueue& queue, bool waits) : target(queue), doesWait(waits) {}
    void start() override {
      isStartedInside = target.isCurrent();
      AsyncOperation::start();
      if (doesWait) waitUntilFinished();
    }
    Async<void> execute() override {
      isExecutedInside = target.isCurrent();
      finish();
      co_return;
    }
    const platform::DispatchQueue& target;
    const bool doesWait;
    bool isStartedInside = false, isExecutedInside = true;
  };
  const auto serial = platform::DispatchQueue::serial("target");
  for (auto* const target : {&platform::DispatchQueue::global(), serial.get()}) {
    for (const bool waits : {false, true}) {
      const auto queue = NSOperationQueue::make();
      queue->setUnderlyingQueue(target->shared_from_this());
      const auto work = std::make_shared<Waiting>(*target, waits);
      queue->addOperation(work);
      work->waitUntilFinished();
      EXPECT_TRUE(work->isStartedInside && !work->isExecutedInside) << target->label() << waits;
    }
  }
}

// Catches a cancelled operation that executes after all.
TEST(AsyncOperationTests, CancelledBeforeStartGoesStraightToFinished) {
  const auto work = std::make_shared<Work>([](Work&) { ADD_FAILURE(); });
  work->cancel();
  work->start();
  EXPECT_EQ(work->state(), finished);
}

// Catches a queue that counts an operation as done when `start` returns, and crashes when the last
// one is finished by a foreign thread while the queue object goes.
TEST(AsyncOperationTests, FinishedFromAnotherThreadWhileTheQueueGoes) {
  for (int round = 0; round < 200; ++round) {
    auto queue = NSOperationQueue::make();
    queue->setMaxConcurrentOperationCount(1);
    std::binary_semaphore started{0};
    auto work = std::make_shared<Work>([&](Work&) { started.release(); });
    auto next = std::make_shared<Work>();
    queue->addOperation(work);
    queue->addOperation(next);
    started.acquire();
    EXPECT_EQ(queue->operationCount(), 2u);
    std::jthread finisher([&] { work->finish(); });
    queue.reset();
    next->waitUntilFinished();
  }
}

// Catches a missing override that passes in silence.
TEST(AsyncOperationTests, ExecuteMustBeOverridden) {
  EXPECT_DEATH(
      {
        const auto operation = std::make_shared<AsyncOperation>();
        operation->start();
        operation->waitUntilFinished();
      },
      "Subclasses must implement `execute`\\.");
}

// Catches a completion barrier that fires while ready operations have not started, or never.
TEST(CompletionBarrierTests, WaitsUntilNothingReadyIsLeft) {
  const auto queue = NSOperationQueue::make();
  std::binary_semaphore done{0};
  addCompletionBarrierBlock(*queue, [&] { done.release(); });
  done.acquire();  // of the empty queue

  // Held back by the width behind the barrier's own segment: ready, not started.
  std::atomic<int> executed = 0;
  auto add = [&] {
    queue->addOperation(std::make_shared<Work>([&](Work& work) {
      ++executed;
      work.finish();
    }));
  };
  queue->setMaxConcurrentOperationCount(0);
  add();
  addCompletionBarrierBlock(*queue, [&] {
    EXPECT_EQ(executed, 20);
    done.release();
  });
  for (int i = 1; i < 20; ++i) add();
  queue->setMaxConcurrentOperationCount(2);
  done.acquire();
}

// Catches a barrier that keeps its queue alive, or runs for one that is gone.
TEST(CompletionBarrierTests, NothingIsCalledOnceTheQueueIsGone) {
  auto queue = NSOperationQueue::make();
  const auto work = std::make_shared<Work>([](Work&) {});
  const auto target = platform::DispatchQueue::serial("target");
  queue->setUnderlyingQueue(target);
  queue->addOperation(work);
  std::atomic<bool> wasCalled = false;
  addCompletionBarrierBlock(*queue, [&] { wasCalled = true; });
  queue.reset();
  target->sync([] {});
  work->finish();
  target->sync([] {});
  EXPECT_FALSE(wasCalled);
}

}  // namespace
}  // namespace ombrix

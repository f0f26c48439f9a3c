#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

namespace ombrix::platform {
namespace {

class Block final : public NSOperation {
 public:
  explicit Block(std::function<void()> work) : work_(std::move(work)) {}
  void main() override { work_(); }

 private:
  const std::function<void()> work_;
};

std::shared_ptr<NSOperation> block(std::function<void()> work) {
  return std::make_shared<Block>(std::move(work));
}

// Catches operations that start before what they depend on, or never, in chains and diamonds.
TEST(NSOperationQueueTests, DependenciesComeFirst) {
  const auto queue = NSOperationQueue::make("dependencies");
  std::mutex mutex;
  std::string order;
  auto letter = [&](char name) {
    return block([&, name] {
      const std::lock_guard lock(mutex);
      order += name;
    });
  };
  const auto a = letter('a'), b = letter('b'), c = letter('c'), d = letter('d'), e = letter('e');
  b->addDependency(a);
  c->addDependency(a);
  d->addDependency(b);
  d->addDependency(c);
  e->addDependency(d);
  for (const auto& each : {e, d, c, b, a}) queue->addOperation(each);
  queue->waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(order == "abcde" || order == "acbde") << order;

  const auto late = letter('f');
  late->addDependency(e);  // has finished already
  EXPECT_TRUE(late->isReady());
}

// Catches operations that start in another order than that of their priorities, and a queue that
// does not tell when the first one comes and the last one goes.
TEST(NSOperationQueueTests, UrgentOperationsStartFirst) {
  using enum NSOperation::QueuePriority;
  const auto queue = NSOperationQueue::make("priorities");
  queue->setMaxConcurrentOperationCount(0);
  std::counting_semaphore<> changes{0};
  const auto token = queue->emptinessDidChange.connect([&] { changes.release(); });
  std::string order;
  const std::pair<char, NSOperation::QueuePriority> rows[] = {
      {'f', veryLow}, {'c', normal}, {'e', low}, {'b', high}, {'d', normal}, {'a', veryHigh}};
  for (const auto& [name, priority] : rows) {
    const auto operation = block([&order, name = name] { order += name; });
    operation->setQueuePriority(priority);
    queue->addOperation(operation);
  }
  EXPECT_TRUE(changes.try_acquire());
  EXPECT_FALSE(changes.try_acquire());
  queue->setMaxConcurrentOperationCount(1);
  queue->waitUntilAllOperationsAreFinished();
  EXPECT_EQ(order, "abcdef");
  EXPECT_TRUE(changes.try_acquire_for(std::chrono::seconds(60)));
  EXPECT_FALSE(changes.try_acquire());
}

// Catches long chains of dependencies that are let go inside each other, on the stack.
TEST(NSOperationQueueTests, ALongChainIsDroppedAndFinished) {
  constexpr int kLength = 1'000'000;
  for (const bool runs : {false, true}) {
    auto last = std::make_shared<NSOperation>();
    const auto first = last;
    for (int i = 1; i < kLength; ++i) {
      auto next = std::make_shared<NSOperation>();
      next->addDependency(last);
      last = std::move(next);
    }
    if (runs) first->start();
    const std::weak_ptr<NSOperation> end = last;
    last = nullptr;
    EXPECT_TRUE(end.expired());
  }
}

// Catches operations that a queue which is gone holds back for ever, and cancelled ones that run,
// or wait for what they depend on for ever.
TEST(NSOperationQueueTests, WhatIsCancelledOrHeldBackByADroppedQueueFinishes) {
  for (const bool isDropped : {true, false}) {
    auto queue = NSOperationQueue::make();
    queue->setMaxConcurrentOperationCount(0);
    std::vector<std::shared_ptr<NSOperation>> operations{block([] {})};  // the first is never added
    std::vector<std::weak_ptr<NSOperation>> watches;
    for (int i = 0; i < 100; ++i) {
      auto operation = block([] { ADD_FAILURE(); });
      operation->addDependency(operations.back());
      queue->addOperation(operation);
      watches.push_back(operation);
      operations.push_back(std::move(operation));
    }
    queue->addBarrierBlock([] {});
    if (!isDropped) {
      queue->cancelAllOperations();
      queue->setMaxConcurrentOperationCount(1);
      queue->waitUntilAllOperationsAreFinished();
    }
    queue = nullptr;
    operations.erase(operations.begin());
    for (const auto& operation : operations) operation->waitUntilFinished();
    operations.clear();
    for (const auto& watch : watches) {
      while (!watch.expired()) std::this_thread::yield();
    }
  }
}

// Catches an operation that is let go under the queue's lock: what it captured may ask the queue.
TEST(NSOperationQueueTests, WhatGoesWithABarrierMayAskTheQueue) {
  const auto queue = NSOperationQueue::make();
  queue->setMaxConcurrentOperationCount(0);
  std::promise<std::size_t> asked;  // the operation may go after the queue is empty
  auto asks =
      std::shared_ptr<void>(nullptr, [&](void*) { asked.set_value(queue->operationCount()); });
  auto operation = block([asks = std::move(asks)] {});
  queue->addOperation(operation);
  operation->start();
  operation = nullptr;
  queue->addBarrierBlock([] {});
  EXPECT_EQ(asked.get_future().get(), 0u);
}

// Catches changes that are announced twice when threads race, or with wrong values.
TEST(NSOperationQueueTests, EachChangeIsAnnouncedOnce) {
  using enum KeyValueObservingOptions;
  for (int round = 0; round < 200; ++round) {
    const auto operation = std::make_shared<NSOperation>();
    const auto first = std::make_shared<NSOperation>(), second = std::make_shared<NSOperation>();
    if (round % 2 == 0) {
      operation->addDependency(first);
      operation->addDependency(second);
    }
    std::mutex mutex;
    std::map<std::string, int> calls;
    std::vector<ObservationToken> tokens;
    for (const char* key : {"ready", "executing", "finished", "cancelled"}) {
      tokens.push_back(operation->observe(key, newValue | oldValue, [&](const auto& change) {
        const std::lock_guard lock(mutex);
        ++calls[std::string(change.key) + std::to_string(*change.oldValue) +
                std::to_string(*change.newValue)];
      }));
    }
    {
      std::vector<std::jthread> threads;
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
          (i % 2 == 0 ? first : second)->start();
          i % 2 == 0 ? operation->cancel() : operation->start();
        });
      }
    }
    std::map<std::string, int> expected{{"cancelled01", 1}, {"executing01", 1}, {"finished01", 1}};
    if (round % 2 == 0) expected.insert({"ready01", 1});
    EXPECT_EQ(calls, expected);
  }
}

// Catches barriers that overlap operations on either side.
TEST(NSOperationQueueTests, BarriersSeparateBeforeFromAfter) {
  const auto queue = NSOperationQueue::make();
  std::atomic<int> before = 0, after = 0, barriers = 0;
  for (int round = 0; round < 10; ++round) {
    for (int i = 0; i < 10; ++i) queue->addOperation([&] { ++before; });
    queue->addBarrierBlock([&, round] {
      EXPECT_EQ(before, 10 * (round + 1));
      EXPECT_EQ(after, 10 * round);
      ++barriers;
    });
    for (int i = 0; i < 10; ++i) queue->addOperation([&] { ++after; });
    queue->addBarrierBlock([&] { ++barriers; });
  }
  queue->waitUntilAllOperationsAreFinished();
  EXPECT_EQ(barriers, 20);
}

// Catches queues that keep all threads for their next operations while other jobs wait for one.
TEST(NSOperationQueueTests, OtherJobsAreServedAmongOperations) {
  struct Endless {
    void operator()() const {
      if (!*stop) queue->addOperation(Endless(*this));
    }
    std::shared_ptr<NSOperationQueue> queue;
    std::shared_ptr<std::atomic<bool>> stop;
  };
  const auto stop = std::make_shared<std::atomic<bool>>(false);
  std::vector<std::shared_ptr<NSOperationQueue>> queues(2 * std::thread::hardware_concurrency() +
                                                        4);
  for (auto& queue : queues) {
    queue = NSOperationQueue::make();
    queue->setMaxConcurrentOperationCount(1);
    queue->addOperation(Endless{queue, stop});
  }
  ThreadPool::shared().post([stop] { *stop = true; });
  for (const auto& queue : queues) queue->waitUntilAllOperationsAreFinished();
}

// Catches changes of the list that observers are not told, or told with a lock held.
TEST(NSOperationQueueTests, TheCountIsObservable) {
  const auto queue = NSOperationQueue::make();
  queue->setMaxConcurrentOperationCount(0);
  std::vector<std::int64_t> counts;
  std::mutex mutex;
  const auto token =
      queue->observe("operationCount", KeyValueObservingOptions::newValue, [&](const auto& change) {
        EXPECT_EQ(queue->operations().size(), queue->operationCount());
        const std::lock_guard lock(mutex);
        counts.push_back(*change.newValue);
      });
  queue->addOperation(block([] {}));
  queue->setMaxConcurrentOperationCount(1);
  while (true) {
    const std::lock_guard lock(mutex);
    if (counts.size() == 2) break;
  }
  EXPECT_EQ(counts, (std::vector<std::int64_t>{1, 0}));
}

// Catches a second start that goes unnoticed, and silent waits for oneself.
TEST(NSOperationQueueTests, WhatCanNeverWorkStopsTheProgram) {
  const auto queue = NSOperationQueue::make();
  std::shared_ptr<NSOperation> operation;
  const auto waitForQueue = [&] { queue->waitUntilAllOperationsAreFinished(); };
  struct Case {
    std::function<void()> begin;
    const char* message;
  };
  const Case cases[] = {
      {[&] {
         queue->setMaxConcurrentOperationCount(0);
         queue->addOperation(operation = block([] {}));
         NSOperationQueue::make()->addOperation(operation);
       },
       "an operation was added to a queue twice"},
      {[&] { (operation = block([&] { operation->waitUntilFinished(); }))->start(); },
       "an operation waits for its own end inside its own work"},
      {[&] { queue->addOperation(waitForQueue); },
       "a queue's operation or barrier waits for that queue to be empty"},
      {[&] { queue->addBarrierBlock(waitForQueue); },
       "a queue's operation or barrier waits for that queue to be empty"},
  };
  for (const auto& [begin, message] : cases) {
    EXPECT_DEATH(
        {
          begin();
          waitForQueue();
        },
        message);
  }
}

}  // namespace
}  // namespace ombrix::platform

#include "OmbrixPlatform/Concurrency/Task.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/Continuation.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/Waiting.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/HeldExecutor.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

Async<std::string> describe(int value) {
  if (value < 0) throw Error("negative");
  co_return std::to_string(value);
}

Async<std::string> hop(int value) {
  co_await sleepFor(0s);
  auto text = co_await describe(value);
  co_return text;
}

// Catches values and exceptions lost on the way through finished and through suspended children.
TEST(AsyncTests, ValuesAndExceptionsPassThroughEveryLevel) {
  EXPECT_EQ(describe(12).get(), "12");
  EXPECT_EQ(hop(12).get(), "12");
  EXPECT_THROW(describe(-1).get(), Error);
  EXPECT_THROW(hop(-1).get(), Error);
  EXPECT_THROW(hop(-1).start().get(), Error);
}

// Catches a dropped operation that runs after all, and arguments and captures that leak, die twice,
// or outlive the moment the result is known.
TEST(AsyncTests, WhatIsNotAwaitedNeverRuns) {
  auto guard = std::make_shared<bool>(false);
  auto operation = [](std::shared_ptr<bool> ran) -> Async<void> {
    co_await sleepFor(0s);
    *ran = true;
  };
  {
    const auto dropped = operation(guard);
  }
  EXPECT_FALSE(*guard);
  operation(guard).get();
  EXPECT_TRUE(*guard);
  auto capturing = [guard, operation]() -> Async<void> { co_await operation(guard); };
  startTask(std::move(capturing)).get();
  EXPECT_EQ(guard.use_count(), 1);
}

Async<int> countDown(int depth) {
  if (depth == 0) co_return 0;
  const int rest = co_await countDown(depth - 1);
  co_return rest + 1;
}

Async<int> countDownSuspended(int depth) {
  if (depth == 0) {
    co_await sleepFor(0s);
    co_return 0;
  }
  const int rest = co_await countDownSuspended(depth - 1);
  co_return rest + 1;
}

// Catches a stack that grows with every await, in a loop or a chain, of children that finish at
// once or are resumed.
TEST(AsyncTests, AwaitsKeepTheStackFlat) {
  constexpr int kAwaits = 1'000'000;
  auto loop = []() -> Async<int> {
    int sum = 0;
    for (int i = 0; i < kAwaits; ++i) {
      const int one = co_await countDown(1);
      sum += one;
    }
    co_return sum;
  };
  EXPECT_EQ(loop().get(), kAwaits);
  EXPECT_EQ(countDown(kAwaits).get(), kAwaits);
  EXPECT_EQ(countDownSuspended(kAwaits).get(), kAwaits);
}

Async<int> addOne(Async<int> work) {
  const int value = co_await std::move(work);
  co_return value + 1;
}

AsyncStream<int> behind(AsyncStream<int> source,
                        std::vector<AsyncStream<int>::Continuation>& ends) {
  auto kept = std::make_shared<AsyncStream<int>>(std::move(source));
  return AsyncStream<int>([&](auto end) {
    ends.push_back(end);
    end.onTermination([kept] {});
  });
}

// Catches destructors inside each other, on the stack, where work holds the work it waits for.
TEST(AsyncTests, WhatHoldsEachOtherIsLetGoOnAFlatStack) {
  constexpr int kLinks = testing::kUnderSanitizer ? 100'000 : 1'000'000;
  constexpr int kFewerLinks = kLinks / 10;
  const auto chain = [](Async<int> work, int links) {
    for (int i = 0; i < links; ++i) work = addOne(std::move(work));
    return work;
  };
  const auto resource = std::make_shared<int>(0);
  const auto hold = [](std::shared_ptr<int> held) -> Async<int> { co_return *held; };
  {
    const auto dropped = chain(hold(resource), kLinks);
  }
  EXPECT_EQ(resource.use_count(), 1);
  EXPECT_EQ(chain(hold(resource), kLinks).get(), kLinks);
  EXPECT_EQ(resource.use_count(), 1);

  std::binary_semaphore entered{0};
  const auto sleep = [&]() -> Async<int> {
    entered.release();
    co_await sleepFor(1h);
    co_return 0;
  };
  const auto cancelled = chain(sleep(), kFewerLinks).start();
  entered.acquire();
  cancelled.cancel();
  EXPECT_THROW(cancelled.get(), CancellationError);

  std::vector<AsyncStream<int>::Continuation> ends;
  auto last = std::make_optional<AsyncStream<int>>([&](auto end) {
    ends.push_back(end);
    end.onTermination([resource] {});
  });
  for (int i = 0; i < kFewerLinks; ++i) last = behind(std::move(*last), ends);
  EXPECT_EQ(resource.use_count(), 2);
  last.reset();
  EXPECT_EQ(resource.use_count(), 1);
}

// Catches cancellation that does not reach a wait deep inside, that leaks from a waiter into the
// task it shares with others, and a waiter that is held by such a task.
TEST(TaskTests, CancellationEndsWaitsAtOnceButNotSharedTasks) {
  std::binary_semaphore gate{0};
  const auto shared = startTask([&] {
    gate.acquire();
    return 1;
  });
  auto awaitShared = [&]() -> Async<int> {
    const int value = co_await shared;
    co_return value;
  };
  auto nested = [&]() -> Async<int> {
    const int value = co_await awaitShared();
    co_return value;
  };
  auto sleepLong = []() -> Async<int> {
    co_await sleepFor(1h);
    co_return 1;
  };
  for (const auto& body :
       {std::function<Async<int>()>(awaitShared), std::function<Async<int>()>(nested),
        std::function<Async<int>()>(sleepLong)}) {
    const auto cancelled = startTask(body);
    cancelled.cancel();
    EXPECT_THROW(cancelled.get(), CancellationError);
  }
  EXPECT_FALSE(shared.isCancelled());
  const auto waiter = startTask(nested);
  gate.release();
  EXPECT_EQ(waiter.get(), 1);
}

// Catches a result that goes with the last handle of its task before one who awaits it goes on.
TEST(TaskTests, WhatIsAwaitedMayBeReplacedMeanwhile) {
  std::binary_semaphore gate{0};
  auto refresh = std::make_optional(startTask([&] {
    gate.acquire();
    return std::string("a value that does not fit the small buffer");
  }));
  auto wait = [&]() -> Async<std::string> {
    const auto& task = *refresh;
    const auto text = co_await task;
    co_return text;
  };
  const auto held = std::make_shared<testing::HeldExecutor>();
  const auto waiting = startTask(wait, held);
  held->take()();
  refresh.reset();
  gate.release();
  held->take()();
  EXPECT_TRUE(waiting.get().ends_with("small buffer"));
}

// Catches tasks that nobody ends when an executor drops their first job, or one after a wait.
TEST(TaskTests, WhatAnExecutorDropsEnds) {
  struct Forgetful final : Executor {
    explicit Forgetful(int count) : left(count) {}
    void post(Job job) override {
      if (left-- > 0) ThreadPool::executor().post(std::move(job));
    }
    std::atomic<int> left;
  };
  int value = 0;
  auto count = [&]() -> Async<int> {
    co_await sleepFor(0s);
    co_return ++value;
  };
  const auto unbegun = startTask(count, std::make_shared<Forgetful>(0));
  EXPECT_THROW(unbegun.get(), CancellationError);
  auto awaitUnbegun = [&]() -> Async<int> {
    const int counted = co_await unbegun;
    co_return counted;
  };
  EXPECT_THROW(startTask(awaitUnbegun).get(), CancellationError);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(startTask(count, std::make_shared<Forgetful>(1)).get(), 1);
}

// Catches continuations that are resumed twice, inline or from many threads.
TEST(ContinuationTests, TheFirstCallWins) {
  auto raced = []() -> Async<int> {
    std::atomic<int> winners = 0;
    std::vector<std::jthread> threads;
    std::function<void(Continuation<int>)> body = [&](Continuation<int> continuation) {
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, continuation, i] { winners += continuation.resume(i) ? 1 : 0; });
      }
    };
    const int winner = co_await withContinuation<int>(body);
    EXPECT_GE(winner, 0);
    threads.clear();
    co_return winners.load();
  };
  for (int i = 0; i < 50; ++i) EXPECT_EQ(raced().get(), 1);
  std::function<void(Continuation<int>)> atOnce = [](Continuation<int> continuation) {
    EXPECT_TRUE(continuation.resume(7));
    EXPECT_FALSE(continuation.fail(std::make_exception_ptr(Error("late"))));
  };
  EXPECT_EQ(withContinuation<int>(atOnce).get(), 7);
}

// Catches waits that go on for ever when nobody is left to end them.
TEST(ContinuationTests, AWaitThatNobodyCanEndIsOver) {
  std::vector<Continuation<int>> kept;
  std::function<void(Continuation<int>)> keep = [&](auto continuation) {
    kept.assign(3, continuation);
  };
  std::function<void(Continuation<int>)> drop = [](const auto&) {};
  EXPECT_THROW(withContinuation<int>(drop).get(), CancellationError);
  const auto waiting = startTask([&] { return withContinuation<int>(keep); },
                                 DispatchQueue::main().shared_from_this());
  DispatchQueue::main().sync([&] { kept.pop_back(); });
  EXPECT_FALSE(waiting.isFinished());
  kept.clear();
  EXPECT_THROW(waiting.get(), CancellationError);

  const AsyncStream<int> unused([](const auto&) {});
  auto stream = std::make_optional<AsyncStream<int>>([](const auto& end) { end.yield(1); });
  EXPECT_EQ(stream->next().get(), 1);
  EXPECT_EQ(stream->next().get(), std::nullopt);
  auto late = stream->next();
  stream.reset();
  EXPECT_EQ(std::move(late).get(), std::nullopt);
}

// Catches a value that cannot be copied and then ends no wait, and fails the sender instead.
TEST(ContinuationTests, AValueThatCannotBeMadeFailsTheWait) {
  struct Large {
    Large() = default;
    Large(Large&&) = default;
    Large(const Large&) { throw Error("no memory"); }
  };
  std::optional<Continuation<Large>> kept;
  std::function<void(Continuation<Large>)> keep = [&](auto continuation) { kept = continuation; };
  const auto held = std::make_shared<testing::HeldExecutor>();
  const auto waiting = startTask([&] { return withContinuation<Large>(keep); }, held);
  held->take()();
  const Large value;
  EXPECT_TRUE(kept->resume(value));
  held->take()();
  EXPECT_THROW(waiting.get(), Error);
}

class Account {
 public:
  Async<int> add(int amount) {
    auto section = [&] { return balance_ += amount; };
    const int balance = co_await serial_.run(section);
    co_return balance;
  }
  Async<void> fail() {
    auto section = [] { throw Error("section"); };
    co_await serial_.run(section);
  }
  Serial& serial() { return serial_; }

 private:
  Serial serial_;
  int balance_ = 0;
};

// Catches sections of an actor that overlap or get lost, run inline and queued mixed.
TEST(SerialTests, SectionsOfEightThreadsNeverOverlap) {
  Account account;
  constexpr int kTasks = 8, kRounds = 1'000;
  auto body = [&]() -> Async<void> {
    for (int i = 0; i < kRounds; ++i) co_await account.add(1);
  };
  std::vector<Task<void>> tasks;
  for (int i = 0; i < kTasks; ++i) tasks.push_back(startTask(body));
  for (const auto& task : tasks) task.get();
  EXPECT_EQ(account.add(0).get(), kTasks * kRounds);
}

// Catches an exception of a section that ends the program or leaves the actor locked.
TEST(SerialTests, AThrowingSectionLeavesTheActorUsable) {
  Account account;
  EXPECT_THROW(account.fail().get(), Error);
  std::binary_semaphore entered{0}, gate{0};
  account.serial().post([&] {
    entered.release();
    gate.acquire();
  });
  entered.acquire();
  const auto queued = account.fail().start();
  gate.release();
  EXPECT_THROW(queued.get(), Error);
  EXPECT_EQ(account.add(2).get(), 2);
}

// Catches jobs that overtake each other, and a section that cannot outlive its actor.
TEST(SerialTests, QueuedWorkKeepsItsOrderAndOutlivesTheActor) {
  auto serial = std::make_unique<Serial>();
  std::vector<int> order;
  std::binary_semaphore done{0};
  auto section = [&] {
    for (int i = 0; i < 1'000; ++i) serial->post([&, i] { order.push_back(i); });
    serial->post([&] { done.release(); });
    serial.reset();
  };
  auto body = [&]() -> Async<void> {
    Serial& actor = *serial;
    co_await actor.run(section);
  };
  body().get();
  done.acquire();
  ASSERT_EQ(order.size(), 1'000u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

// Catches slow sections that run on the main queue, inline or as its continuation.
TEST(SerialTests, DiskWorkNeverRunsOnTheMainQueue) {
  Serial serial(SectionPlace::offMainQueue);
  auto body = [&]() -> Async<bool> {
    EXPECT_TRUE(DispatchQueue::main().isCurrent());
    auto section = [&] { return DispatchQueue::main().isCurrent(); };
    const bool wasOnMain = co_await serial.run(section);
    EXPECT_TRUE(DispatchQueue::main().isCurrent());
    co_return wasOnMain;
  };
  EXPECT_FALSE(startTask(body, DispatchQueue::main().shared_from_this()).get());
}

}  // namespace
}  // namespace ombrix::platform

#include "OmbrixPlatform/Concurrency/Waiting.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <semaphore>
#include <stop_token>
#include <string>
#include <vector>

#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/HeldExecutor.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

// Work that ends when it is told to, with a value, or throws when that is negative.
struct Gate {
  std::atomic<int> asked = 0, stopped = 0;
  std::counting_semaphore<> entered{0}, open{0};
  std::stop_token ownStop;  // of the work that entered first

  // Owns itself, as work that heeds no request to stop must.
  static Async<int> deaf(std::shared_ptr<Gate> gate, int result) {
    const TaskContext& context = co_await currentContext;
    if (gate->asked++ == 0) gate->ownStop = context.stopToken;
    gate->entered.release();
    gate->open.acquire();
    if (context.stopToken.stop_requested()) ++gate->stopped;
    if (result < 0) throw Error("failed");
    co_return result;
  }
};

Async<std::string> text(std::string value) { co_return value; }
Async<void> nothing() { co_return; }
Async<int> sleeping() {
  co_await sleepFor(1h);
  co_return 0;
}

// Catches values in the wrong places, works that run one after the other, and a time-out that
// strikes work that is over.
TEST(WaitingTests, AllAndAnyGiveTheirValues) {
  auto one = text("one");
  auto none = nothing();
  const auto three = text("three").start();
  auto all = whenAll(std::move(one), std::move(none), three);
  const auto [first, second, third] = std::move(all).get();
  EXPECT_EQ(first + third, "onethree");
  EXPECT_EQ(withTimeout(three, 0s).get(), "three");

  const auto gate = std::make_shared<Gate>();
  std::vector<Async<int>> works;
  for (int i = 0; i < 10; ++i) works.push_back(Gate::deaf(gate, i));
  const auto values = whenAll(std::move(works)).start();
  for (int i = 0; i < 10; ++i) gate->entered.acquire();
  gate->open.release(10);
  EXPECT_EQ(values.get(), (std::vector{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_TRUE(whenAll(std::vector<Async<int>>()).get().empty());

  works.clear();
  works.push_back(sleeping());
  works.push_back(Gate::deaf(gate, 7));
  gate->open.release();
  const auto any = whenAny(std::move(works)).get();
  EXPECT_EQ(any.index, 1u);
  EXPECT_EQ(any.value, 7);
}

// Catches waits that last as long as work that heeds nothing: after a failure, a cancellation or a
// time-out; work of one's own that is not asked to stop then, and shared tasks that are.
TEST(WaitingTests, WaitsEndAtOnceAndOwnWorkIsAskedToStop) {
  const auto clock = std::make_shared<testing::ManualClock>();
  const testing::ScopedService scoped(services().clock, clock);
  enum class Ending { failure, cancellation, timeout };
  for (const bool owns : {true, false}) {
    for (const auto ending : {Ending::failure, Ending::cancellation, Ending::timeout}) {
      const auto deaf = std::make_shared<Gate>(), failing = std::make_shared<Gate>();
      std::vector<Task<int>> shared;
      auto wait = [&]() -> Async<void> {
        auto one = Gate::deaf(deaf, 1);
        auto two = Gate::deaf(failing, -1);
        if (owns) {
          auto both = whenAll(std::move(one), std::move(two));
          co_await withTimeout(std::move(both), 30s);
        } else {
          shared = {std::move(one).start(), std::move(two).start()};
          auto both = whenAll(shared);
          co_await withTimeout(std::move(both), 30s);
        }
      };
      const auto waiting = startTask(wait);
      deaf->entered.acquire();
      failing->entered.acquire();
      switch (ending) {
        case Ending::failure:
          failing->open.release();
          EXPECT_THROW(waiting.get(), Error);
          break;
        case Ending::cancellation:
          waiting.cancel();
          EXPECT_THROW(waiting.get(), CancellationError);
          break;
        case Ending::timeout:
          while (!waiting.isFinished()) clock->advance(30s);
          EXPECT_THROW(waiting.get(), TimeoutError);
          break;
      }
      // An inner wait learns that it is over in a turn of its own, and then asks its work to stop.
      while (owns && !deaf->ownStop.stop_requested()) std::this_thread::yield();
      deaf->open.release();
      if (ending != Ending::failure) failing->open.release();
      while (deaf.use_count() > 1 || failing.use_count() > 1) std::this_thread::yield();
      EXPECT_EQ(deaf->stopped, owns ? 1 : 0);
      if (!owns) {
        EXPECT_EQ(shared[0].get(), 1);
      }
    }
  }
}

// Catches own work that begins after the wait for it is over, on what the waiting frame had.
TEST(WaitingTests, WhatIsGivenUpBeforeItBeginsNeverBegins) {
  const auto clock = std::make_shared<testing::ManualClock>();
  const testing::ScopedService scoped(services().clock, clock);
  const auto held = std::make_shared<testing::HeldExecutor>();
  bool hasBegun = false;
  auto work = [&]() -> Async<void> {
    hasBegun = true;
    co_return;
  };
  const auto limited = withTimeout(work(), 30s).start(held);
  held->take()();
  auto own = held->take();
  clock->advance(30s);
  held->take()();
  EXPECT_THROW(limited.get(), TimeoutError);
  own();
  EXPECT_FALSE(hasBegun);
}

}  // namespace
}  // namespace ombrix::platform

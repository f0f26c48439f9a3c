#include <gtest/gtest.h>

#include <memory>
#include <semaphore>
#include <string>
#include <vector>

#include "OmbrixCore/Concurrency/DispatchQueue+Throttle.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix {
namespace {

using namespace std::chrono_literals;

class ThrottleTests : public ::testing::Test {
 protected:
  platform::Job note(std::string text) {
    return [this, text] {
      log.push_back(text);
      ran.release();
    };
  }
  std::chrono::steady_clock::time_point in(std::chrono::duration<double> delay) {
    return platform::deadlineAfter(delay);
  }
  // Clears the process-wide entries of this test.
  ~ThrottleTests() override {
    clock->advance(3600s);
    std::binary_semaphore done{0};
    const auto token = platform::after(0s, [&] { done.release(); });
    done.acquire();
  }

  std::shared_ptr<testing::ManualClock> clock = std::make_shared<testing::ManualClock>();
  testing::ScopedService<platform::Clock> scoped{platform::services().clock, clock};
  std::shared_ptr<platform::DispatchQueue> queue = platform::DispatchQueue::serial("throttled");
  std::vector<std::string> log;  // guarded by the queue
  std::counting_semaphore<> ran{0};
};

// Catches contexts that share a state, a first call that is dropped, and calls that pass before the
// deadline.
TEST_F(ThrottleTests, TheFirstCallOfAContextRunsAndOthersAreDroppedUntilTheDeadline) {
  const std::optional<DispatchContext> one(DispatchContext(1)),
      text(DispatchContext(std::string("1")));
  throttle(*queue, in(10s), one, note("one"));
  throttle(*queue, in(10s), text, note("text"));
  throttle(*queue, in(10s), std::nullopt, note("none"));
  throttle(*queue, in(20s), DispatchContext(1), note("dropped"));
  clock->advance(9s);
  throttle(*queue, in(10s), one, note("dropped too"));
  throttle(*queue, in(0s), one, note("dropped as well"));
  throttle(*queue, in(0s), DispatchContext(3), note("free"));
  clock->advance(1s);
  throttle(*queue, in(10s), one, note("again"));
  queue->sync([] {});
  EXPECT_EQ(log, (std::vector<std::string>{"one", "text", "none", "free", "again"}));
}

// Catches a debounced action that runs before its quiet interval is over, or not the last one.
TEST_F(ThrottleTests, TheLastCallOfABurstRunsAfterTheInterval) {
  const std::optional<DispatchContext> context(DispatchContext(2));
  debounce(*queue, 10s, context, note("first"));
  clock->advance(9s);
  debounce(*queue, 10s, context, note("second"));
  debounce(*queue, 10s, std::nullopt, note("other"));
  clock->advance(9s);
  debounce(*queue, 10s, context, note("last"));
  clock->advance(1s);
  ran.acquire();
  clock->advance(9s);
  ran.acquire();
  queue->sync([&] { EXPECT_EQ(log, (std::vector<std::string>{"other", "last"})); });
}

}  // namespace
}  // namespace ombrix

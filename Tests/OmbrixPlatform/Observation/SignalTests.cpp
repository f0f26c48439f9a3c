#include "OmbrixPlatform/Observation/Signal.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <barrier>
#include <string>
#include <thread>
#include <vector>

namespace ombrix::platform {
namespace {

using ::testing::ElementsAre;

// Catches a wrong order, a lost argument, and handlers that are called after their token is gone.
TEST(SignalTests, CallsHandlersInOrderUntilTheirTokensEnd) {
  Signal<int, const std::string&> signal;
  signal.send(0, "nobody");
  std::vector<std::string> calls;
  auto first = signal.connect([&](int n, const std::string& s) {
    calls.push_back(s + std::to_string(n++));  // its own copy
  });
  auto second = signal.connect([&](int n, auto& s) { calls.push_back(s + std::to_string(n)); });
  signal.send(7, "x");
  EXPECT_THAT(calls, ElementsAre("x7", "x7"));

  auto moved = std::move(first);
  EXPECT_FALSE(first);
  moved = std::move(second);  // ends what it held before
  signal.send(8, "y");
  EXPECT_THAT(calls, ElementsAre("x7", "x7", "y8"));
  moved.detach();
  signal.send(9, "z");
  EXPECT_EQ(calls.size(), 4U);
}

// Catches iterator invalidation and a round that grows while it runs, or that calls a handler
// which an earlier handler has ended.
TEST(SignalTests, ARoundMeetsTheObserversItBeganWithButForEndedOnes) {
  Signal<> signal;
  std::string calls;
  std::vector<ObservationToken> added;
  ObservationToken last;
  auto first = signal.connect([&] {
    calls += 'a';
    added.push_back(signal.connect([&] { calls += 'n'; }));
    last.cancel();
  });
  last = signal.connect([&] { calls += 'z'; });
  signal.send();
  EXPECT_EQ(calls, "a");
  signal.send();
  EXPECT_EQ(calls, "aan");
}

// Catches a deadlock when a handler ends itself, also within a nested round, captures that are
// destroyed while the handler still uses them, and a signal that goes inside a handler, or before
// its tokens.
TEST(SignalTests, AHandlerMayEndItselfAndItsCapturesLiveUntilItReturns) {
  auto owner = std::make_unique<Signal<>>();
  auto& signal = *owner;
  ObservationToken token;
  const auto capture = std::make_shared<int>(5);
  int seen = 0;
  token = signal.connect([&, mine = capture] {
    if (++seen == 1) return signal.send();
    token.cancel();
    seen += *mine;
    EXPECT_EQ(capture.use_count(), 2);
  });
  signal.send();
  signal.send();
  EXPECT_EQ(seen, 7);
  EXPECT_EQ(capture.use_count(), 1);
  auto first = signal.connect([&] { owner.reset(); });
  auto second = signal.connect([&] { ++seen; });
  signal.send();
  EXPECT_EQ(seen, 8);
}

// Catches work that grows with the square of the number of observers: this would take minutes.
TEST(SignalTests, ManyObserversMayComeAndGoInsideARound) {
  Signal<> signal;
  constexpr int kObservers = 100'000;
  std::vector<ObservationToken> tokens;
  int calls = 0;
  auto root = signal.connect([&] {
    if (tokens.empty()) {
      for (int i = 0; i < kObservers; ++i) tokens.push_back(signal.connect([&] { ++calls; }));
    } else {
      tokens.clear();
    }
  });
  signal.send();
  EXPECT_EQ(calls, 0);
  signal.send();
  EXPECT_EQ(calls, 0) << "ended by the first handler of the round";
  EXPECT_TRUE(tokens.empty());
}

// Catches races of connecting, sending and ending, and a token that returns while its handler still
// runs on another thread; a call after the end reads freed memory, which the sanitizers report.
TEST(SignalTests, ThreadsMayConnectSendAndEndAtOnce) {
  Signal<int> signal;
  std::atomic<int> late{0};
  const auto churn = [&] {
    for (int i = 0; i < 2'000; ++i) {
      auto alive = std::make_unique<std::atomic<bool>>(true);
      const auto capture = std::make_shared<int>(0);
      auto token = signal.connect([&late, flag = alive.get(), capture](int) {
        std::this_thread::yield();
        if (!*flag) ++late;
      });
      signal.send(i);
      token.cancel();
      *alive = false;
      if (capture.use_count() != 1) ++late;
    }
  };
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(churn);
  }
  EXPECT_EQ(late, 0);
  EXPECT_FALSE(signal.hasObservers());
}

}  // namespace
}  // namespace ombrix::platform

#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace ombrix::platform {
namespace {

using enum KeyValueObservingOptions;
using ::testing::ElementsAre;

class Box final : public KeyValueObserving<int> {
 public:
  void set(int value) {
    willChangeValueForKey("value");
    if (beforeChange) beforeChange();
    value_ = value;
    didChangeValueForKey("value");
  }
  mutable int reads = 0;
  std::function<void()> beforeChange;
  mutable std::function<void()> afterRead;

 protected:
  std::optional<int> valueForKey(std::string_view key) const override {
    ++reads;
    const auto value = key == "value" ? value_ : std::nullopt;
    if (afterRead) std::exchange(afterRead, nullptr)();
    return value;
  }

 private:
  std::optional<int> value_;
};

std::string text(const KeyValueChange<int>& change) {
  const auto part = [](const int* value) { return value ? std::to_string(*value) : "-"; };
  return (change.isPrior ? "will " : "did ") + part(change.oldValue) + ">" + part(change.newValue);
}

// Catches values that were not asked for, a prior call for those who did not want one, and a pair
// in the wrong order.
TEST(KeyValueObservingTests, EachObserverGetsWhatItAskedFor) {
  struct Case {
    KeyValueObservingOptions options;
    std::vector<std::string> expected;
  };
  const Case cases[] = {
      {none, {"did ->-"}},
      {newValue, {"did ->2"}},
      {oldValue, {"did 1>-"}},
      {newValue | prior, {"will ->-", "did ->2"}},
      {newValue | oldValue | prior, {"will 1>-", "did 1>2"}},
      {newValue | initial, {"did ->1", "did ->2"}},
      {oldValue | initial, {"did ->-", "did 1>-"}},
  };
  Box box;
  box.set(1);
  EXPECT_EQ(box.reads, 0) << "nobody asked for values";
  std::vector<std::vector<std::string>> calls(std::size(cases));
  std::vector<ObservationToken> tokens;
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    tokens.push_back(box.observe("value", cases[i].options,
                                 [&, i](const auto& change) { calls[i].push_back(text(change)); }));
  }
  auto other = box.observe("other", newValue, [](const auto&) { ADD_FAILURE(); });
  box.set(2);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_THAT(calls[i], cases[i].expected) << "case " << i;
  }
  tokens.clear();
  EXPECT_FALSE(box.isObserved("value"));
  EXPECT_TRUE(box.isObserved("other"));
}

// Catches old values that are mixed up between nested changes.
TEST(KeyValueObservingTests, PairsMayNest) {
  Box box;
  box.set(1);
  std::vector<std::string> calls;
  bool nested = false;
  auto token = box.observe("value", newValue | oldValue | prior, [&](const auto& change) {
    calls.push_back(text(change));
    if (change.isPrior && !std::exchange(nested, true)) box.set(5);
  });
  box.set(9);
  EXPECT_THAT(calls, ElementsAre("will 1>-", "will 1>-", "did 1>5", "did 1>9"));
}

// Catches half of a pair: an observer that comes in between and hears of the second call only, and
// one that has read the old value and never hears of the new one.
TEST(KeyValueObservingTests, BothCallsReachTheSameObservers) {
  Box box;
  box.set(1);
  std::vector<std::string> calls;
  std::vector<ObservationToken> late;
  const auto add = [&](KeyValueObservingOptions options) {
    late.push_back(box.observe(
        "value", options, [&](const auto& change) { calls.push_back("late " + text(change)); }));
  };
  auto first = box.observe("value", newValue | prior, [&](const auto& change) {
    calls.push_back(text(change));
    if (!change.isPrior || !late.empty()) return;
    add(newValue);
    add(newValue | initial);
  });
  box.set(2);
  EXPECT_THAT(calls, ElementsAre("will ->-", "late did ->1", "did ->2", "late did ->2"));
  calls.clear();
  late.clear();
  box.set(3);
  EXPECT_THAT(calls, ElementsAre("will ->-", "late did ->2", "did ->3", "late did ->3"));
  late.clear();
  first = {};
  calls.clear();
  box.beforeChange = [&] { add(newValue | initial); };  // nobody observed when it was announced
  box.set(4);
  EXPECT_THAT(calls, ElementsAre("late did ->3", "late did ->4"));
}

// Catches an observer that is left with the value that it read before another thread's change,
// though it was told of that.
TEST(KeyValueObservingTests, AnOldInitialValueIsNotTheLastOne) {
  Box box;
  box.set(1);
  std::vector<std::string> calls;
  box.afterRead = [&] { std::jthread([&] { box.set(2); }).join(); };
  auto token = box.observe("value", newValue | initial,
                           [&](const auto& change) { calls.push_back(text(change)); });
  EXPECT_THAT(calls, ElementsAre("did ->2", "did ->1", "did ->2"));
}

}  // namespace
}  // namespace ombrix::platform

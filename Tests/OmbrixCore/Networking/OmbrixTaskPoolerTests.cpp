#include "OmbrixCore/Networking/OmbrixTaskPooler.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <semaphore>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixCore/Networking/RemoteObjectState.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"

namespace ombrix {
namespace {

using platform::Async;

// A task that counts its runs and ends when the test says so.
struct Gate {
  std::atomic<int> runs{0};
  std::counting_semaphore<> started{0}, open{0};

  auto closure(int result) {
    return [this, result]() -> Async<int> {
      ++runs;
      started.release();
      open.acquire();
      if (result < 0) throw std::runtime_error("failed");
      co_return result;
    };
  }
};

// A call that has looked its key up when the constructor returns, or at least stands in line.
template <class Value>
class Caller {
 public:
  explicit Caller(Async<Value> call, std::stop_token stopToken = {})
      : call_(std::move(call)), context_{platform::poolExecutor(), std::move(stopToken)} {
    call_.begin(context_, wait_.resumption());
  }
  Value get() {
    wait_.wait();
    return call_.outcome().take();
  }

 private:
  Async<Value> call_;
  const platform::TaskContext context_;
  platform::detail::BlockingWait wait_;
};

// Catches a second run for a key that runs, and keys that share a task.
TEST(OmbrixTaskPoolerTests, OneTaskAKey) {
  OmbrixTaskPooler<int> pooler;
  Gate a, b;
  Caller creator(pooler.run(a.closure(1), "a"));
  Caller joined(pooler.run(a.closure(2), "a")), third(pooler.run(a.closure(3), "a"));
  Caller other(pooler.run(b.closure(4), "b"));
  a.started.acquire();
  b.started.acquire();
  a.open.release();
  b.open.release();
  EXPECT_EQ(creator.get(), 1);
  EXPECT_EQ(joined.get(), 1);
  EXPECT_EQ(third.get(), 1);
  EXPECT_EQ(other.get(), 4);
  EXPECT_EQ(a.runs + b.runs, 2);
}

// Catches a failure that is not handed to all, or that keeps its key.
TEST(OmbrixTaskPoolerTests, FailuresReachEverybodyAndFreeTheKey) {
  OmbrixTaskPooler<int> pooler;
  Gate gate;
  Caller creator(pooler.run(gate.closure(-1), "a")), joined(pooler.run(gate.closure(1), "a"));
  gate.open.release();
  EXPECT_THROW(creator.get(), std::runtime_error);
  EXPECT_THROW(joined.get(), std::runtime_error);
  gate.open.release();
  EXPECT_EQ(pooler.run(gate.closure(4), "a").get(), 4);
  EXPECT_EQ(gate.runs, 2);
}

// Catches a cancelled caller that waits on, takes the others' task with it, or frees its key.
TEST(OmbrixTaskPoolerTests, CancellingACallerCancelsNothingElse) {
  OmbrixTaskPooler<int> pooler;
  platform::PassthroughSubject<int, HTTPError> subject;
  std::counting_semaphore<> asked{0};
  const auto publisher =
      subject.handleEvents({.receiveRequest = [&](platform::Demand) { asked.release(); }});
  std::stop_source stop;
  Caller creator(pooler.run(publisher, "a"), stop.get_token()), joined(pooler.run(publisher, "a"));
  asked.acquire();
  stop.request_stop();
  EXPECT_THROW(creator.get(), platform::CancellationError);
  Caller late(pooler.run(publisher, "a"));
  // The demand may still be on its way, and what is sent before it arrives is lost.
  const std::jthread sender([&](const std::stop_token& isOver) {
    while (!isOver.stop_requested()) subject.send(7);
  });
  EXPECT_EQ(joined.get(), 7);
  EXPECT_EQ(late.get(), 7);
  EXPECT_FALSE(asked.try_acquire());
}

// Catches tasks without a result that run twice, or whose failure is lost.
TEST(OmbrixTaskPoolerTests, TasksWithoutAResult) {
  OmbrixTaskPooler<void> pooler;
  Gate gate;
  for (const int result : {1, -1}) {
    const auto work = [run = gate.closure(result)]() -> Async<void> {
      auto task = run();
      co_await std::move(task);
    };
    Caller creator(pooler.run(work, "a")), joined(pooler.run(work, "a"));
    gate.open.release();
    for (auto* caller : {&creator, &joined}) {
      if (result < 0) {
        EXPECT_THROW(caller->get(), std::runtime_error);
      } else {
        caller->get();
      }
    }
  }
  EXPECT_EQ(gate.runs, 2);
}

struct Resort {
  int id;
  std::string name;
};
struct Day {
  std::string text;
  const std::string& id() const { return text; }
};

// Catches a wrong copy or identity, and equality that looks at more than case and identity.
TEST(RemoteObjectStateTests, ValueIdentityAndEquality) {
  using State = RemoteObjectState<Resort>;
  const auto error = std::make_exception_ptr(HTTPError::serverError());
  const auto other = std::make_exception_ptr(HTTPError::networkError());
  const State bare[] = {State::loading(7), State::offline(7), State::failed(7, {}, error),
                        State::loaded({7, "a"})};
  const State full[] = {State::loading(7, Resort{8, "x"}), State::offline(7, Resort{9, "y"}),
                        State::failed(7, Resort{7, "z"}, other), State::loaded({7, "b"})};
  const State elsewhere[] = {State::loading(6), State::offline(6), State::failed(6, {}, error),
                             State::loaded({6, "a"})};
  const std::hash<State> hash;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(static_cast<int>(full[i].kind()), i);
    EXPECT_EQ(full[i].id(), 7);
    ASSERT_NE(full[i].value(), nullptr);
    EXPECT_EQ(full[i].value()->name[0], "xyzb"[i]);
    EXPECT_EQ(bare[i].value() == nullptr, i < 3);
    EXPECT_EQ(full[i].error() != nullptr, i == 2);
    for (int j = 0; j < 4; ++j) EXPECT_EQ(bare[i] == full[j], i == j) << i << j;
    EXPECT_NE(bare[i], elsewhere[i]);
    EXPECT_NE(hash(bare[i]), hash(elsewhere[i]));
    // Kept: equal failed states hash by their errors' texts.
    EXPECT_EQ(hash(bare[i]) == hash(full[i]), i != 2);
  }
  EXPECT_EQ(RemoteObjectState<Day>::loaded({"monday"}).id(), "monday");
}

}  // namespace
}  // namespace ombrix

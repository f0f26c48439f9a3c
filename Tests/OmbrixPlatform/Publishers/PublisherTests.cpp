#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <memory>
#include <optional>
#include <semaphore>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {
namespace {

// Writes down what it receives; asks for as much as it is told to.
class Recorder final : public Subscriber<int, std::string> {
 public:
  explicit Recorder(Demand first, Demand afterEach = Demand::none())
      : first_(first), afterEach_(afterEach) {}

  void receiveSubscription(std::shared_ptr<Subscription> given) override {
    subscription = std::move(given);
    if (!first_.isNone()) subscription->request(first_);
  }
  Demand receiveValue(const int& value) override {
    values.push_back(value);
    if (onValue) onValue(value);
    return afterEach_;
  }
  void receiveCompletion(const Completion<std::string>& completion) override {
    endings.push_back(completion.isFinished() ? "finished" : *completion.failure());
  }

  std::shared_ptr<Subscription> subscription;
  std::vector<int> values;
  std::vector<std::string> endings;
  std::function<void(int)> onValue;

 private:
  const Demand first_, afterEach_;
};

using Passthrough = PassthroughSubject<int, std::string>;
using Current = CurrentValueSubject<int, std::string>;
using Strings = std::vector<std::string>;

void sendAll(const auto& subject, std::initializer_list<int> values) {
  for (const int value : values) subject.send(value);
}

// Catches values beyond the demand, demand that is lost or counted twice, and a current value that
// is forgotten, or old values that pile up, while there is no demand.
TEST(SubjectTests, NothingGoesBeyondTheDemand) {
  struct Case {
    const char* name;
    Demand first, afterEach;
    std::vector<int> passed, current;  // the latter with another one asked for at the end
  };
  const Case cases[] = {
      {"none", Demand::none(), Demand::none(), {}, {3}},
      {"two", Demand::max(2), Demand::none(), {1, 2}, {0, 1, 3}},
      {"one, and one after each", Demand::max(1), Demand::max(1), {1, 2, 3}, {0, 1, 2, 3}},
      {"unlimited", Demand::unlimited(), Demand::none(), {1, 2, 3}, {0, 1, 2, 3}},
  };
  for (const auto& [name, first, afterEach, passed, current] : cases) {
    const Passthrough passthrough;
    const Current latest(0);
    const auto one = std::make_shared<Recorder>(first, afterEach);
    const auto two = std::make_shared<Recorder>(first, afterEach);
    passthrough.receive(one);
    latest.receive(two);
    sendAll(passthrough, {1, 2, 3});
    sendAll(latest, {1, 2});
    latest.setValue(3);
    two->subscription->request(Demand::max(1));
    EXPECT_EQ(one->values, passed) << name;
    EXPECT_EQ(two->values, current) << name;
  }
}

// Catches deliveries after the end, of either kind, and late subscribers who wait for ever.
TEST(SubjectTests, NothingFollowsCompletionOrCancellation) {
  const Passthrough subject;
  const auto ended = std::make_shared<Recorder>(Demand::unlimited());
  const auto cancelled = std::make_shared<Recorder>(Demand::unlimited());
  subject.receive(ended);
  subject.receive(cancelled);
  subject.send(1);
  cancelled->subscription->cancel();
  cancelled->subscription->request(Demand::unlimited());
  subject.sendCompletion(Completion<std::string>::failure("broken"));
  subject.send(2);
  subject.sendCompletion(Completion<std::string>::finished());
  const auto late = std::make_shared<Recorder>(Demand::unlimited());
  subject.receive(late);
  EXPECT_EQ(ended->values, std::vector{1});
  EXPECT_EQ(ended->endings, Strings{"broken"});
  EXPECT_EQ(cancelled->values, std::vector{1});
  EXPECT_EQ(cancelled->endings, Strings{});
  EXPECT_EQ(late->endings, Strings{"broken"});
}

// Catches deadlocks and wrong rounds when subscribers change or send inside a delivery.
TEST(SubjectTests, SubscribersMayChangeEverythingWhileNotified) {
  const Passthrough subject;
  const auto added = std::make_shared<Recorder>(Demand::unlimited());
  const auto removed = std::make_shared<Recorder>(Demand::unlimited());
  const auto busy = std::make_shared<Recorder>(Demand::unlimited());
  busy->onValue = [&](int value) {
    if (value != 1) return;
    subject.receive(added);
    removed->subscription->cancel();
    subject.send(2);
    busy->subscription->cancel();
  };
  subject.receive(busy);
  subject.receive(removed);
  subject.send(1);
  EXPECT_EQ(busy->values, std::vector{1});
  EXPECT_EQ(removed->values, std::vector<int>{});
  EXPECT_EQ(added->values, std::vector{2});
}

// Catches calls that overlap, and orders that differ between subscribers, under racing senders.
TEST(SubjectTests, RacingSendersAreSeenInOneOrder) {
  const Current subject(-1);
  const auto one = std::make_shared<Recorder>(Demand::unlimited());
  const auto two = std::make_shared<Recorder>(Demand::unlimited());
  subject.receive(one);
  subject.receive(two);
  {
    std::vector<std::jthread> senders;
    for (int t = 0; t < 8; ++t) {
      senders.emplace_back([&, t] {
        for (int i = 0; i < 500; ++i) subject.send(t * 500 + i);
      });
    }
  }
  EXPECT_EQ(one->values.size(), 4'001u);
  EXPECT_EQ(one->values, two->values);
  EXPECT_EQ(one->values.back(), subject.value());
}

// Catches a subscriber that holds up what others send to the one behind it.
TEST(SubjectTests, ASlowSubscriberHoldsUpItsOwnSenderOnly) {
  const Current subject(0);
  const auto slow = std::make_shared<Recorder>(Demand::unlimited());
  const auto quick = std::make_shared<Recorder>(Demand::unlimited());
  std::binary_semaphore entered{0}, gate{0};
  slow->onValue = [&](int value) {
    if (value != 1) return;
    entered.release();
    gate.acquire();
  };
  quick->onValue = [&](int value) {
    if (value == 2) gate.release();
  };
  subject.receive(slow);
  subject.receive(quick);
  std::jthread other([&] {
    entered.acquire();
    subject.send(2);
    subject.sendCompletion(Completion<std::string>::finished());
  });
  subject.send(1);
  other.join();
  for (const auto& each : {slow, quick}) {
    EXPECT_EQ(each->values, (std::vector{0, 1, 2}));
    EXPECT_EQ(each->endings, Strings{"finished"});
  }
}

// Catches an exception of one subscriber that costs others values, or itself all later ones.
TEST(SubjectTests, AThrowingSubscriberLosesNothing) {
  const Passthrough subject;
  const auto throwing = std::make_shared<Recorder>(Demand::unlimited());
  const auto other = std::make_shared<Recorder>(Demand::unlimited());
  throwing->onValue = [](int value) {
    if (value == 1) throw Error("one");
  };
  subject.receive(throwing);
  subject.receive(other);
  EXPECT_THROW(subject.send(1), Error);
  subject.send(2);
  EXPECT_EQ(throwing->values, (std::vector{1, 2}));
  EXPECT_EQ(other->values, (std::vector{1, 2}));
}

// Catches values that were sent after a cancellation returned and arrive all the same, and
// everything that breaks when thousands subscribe and cancel during delivery.
TEST(SubjectTests, AStormOfSubscriptionsAndCancellations) {
  const PassthroughSubject<int, Never> subject;
  std::atomic<int> clock = 0;
  std::atomic<bool> stop = false;
  // It never pauses: whoever delivered all that it sends would never return.
  std::jthread sender([&] {
    while (!stop) subject.send(++clock);
  });
  {
    std::vector<std::jthread> subscribers;
    for (int t = 0; t < 7; ++t) {
      subscribers.emplace_back([&] {
        for (int i = 0; i < 400; ++i) {
          const auto cancelledAt = std::make_shared<std::atomic<int>>(INT_MAX);
          auto cancellable =
              subject.map([](int value) { return value; }).sink([cancelledAt](int value) {
                EXPECT_LE(value, *cancelledAt);
              });
          if (i % 4 == 0) std::this_thread::yield();
          cancellable.cancel();
          *cancelledAt = clock + 1;  // one value may have its number and not be sent yet
        }
      });
    }
  }
  stop = true;
}

// Catches operators that lose, reorder or misroute values and endings.
TEST(OperatorTests, EachOperatorPassesOnWhatItShould) {
  const Passthrough subject;
  std::vector<std::string> log;
  const auto cancellable =
      subject
          .handleEvents(
              {.receiveSubscription = [&] { log.push_back("subscribed"); },
               .receiveOutput = [&](int v) { log.push_back("out " + std::to_string(v)); },
               .receiveRequest =
                   [&](Demand d) { log.push_back(d.isUnlimited() ? "unlimited" : "some"); }})
          .map([](int value) { return value * 10; })
          .tryMap([](int value) {
            if (value == 30) throw Error("thirty");
            return std::to_string(value);
          })
          .mapError([](const std::exception_ptr& error) {
            try {
              std::rethrow_exception(error);
            } catch (const std::exception& exception) {
              return std::string(exception.what());
            }
          })
          .sink([&](const Completion<std::string>& c) { log.push_back(*c.failure()); },
                [&](const std::string& text) { log.push_back(text); });
  sendAll(subject, {1, 2, 3, 4});
  EXPECT_EQ(log,
            (Strings{"subscribed", "unlimited", "out 1", "10", "out 2", "20", "out 3", "thirty"}));
}

// Catches reordering, overlap and delivery after cancellation on another queue, and a completion
// that overtakes values.
TEST(OperatorTests, ReceiveOnDeliversInOrderOnTheQueue) {
  const auto queue = DispatchQueue::concurrent("delivery");
  const Passthrough subject;
  std::vector<int> values;
  std::binary_semaphore ended{0};
  const auto cancellable = subject.receiveOn(queue).sink(
      [&](const auto&) {
        EXPECT_TRUE(queue->isCurrent());
        ended.release();
      },
      [&](int value) {
        EXPECT_TRUE(queue->isCurrent());
        values.push_back(value);
      });
  for (int i = 0; i < 2'000; ++i) subject.send(i);
  subject.sendCompletion(Completion<std::string>::finished());
  ended.acquire();
  ASSERT_EQ(values.size(), 2'000u);
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));

  const auto gate = DispatchQueue::serial("gate");
  std::binary_semaphore open{0};
  gate->async([&] { open.acquire(); });
  const Passthrough other;
  bool wasCalled = false;
  auto late = other.receiveOn(gate).sink(nullptr, [&](int) { wasCalled = true; });
  other.send(1);
  late.cancel();
  open.release();
  gate->sync([] {});
  EXPECT_FALSE(wasCalled);
}

// Catches handlers and what they captured living on after the end of their subscription, or of the
// source that could call them, and a cancellation that does not go up, or is reported twice.
TEST(OperatorTests, HandlersAreReleasedAtTheEnd) {
  enum class End { completes, cancelled, goes };
  for (const auto end : {End::completes, End::cancelled, End::goes}) {
    auto subject = std::make_optional<Passthrough>();
    auto resource = std::make_shared<int>(0);
    int cancels = 0;
    auto cancellable = subject->map([](int value) { return value; })
                           .handleEvents({.receiveOutput = [resource](int) {},
                                          .receiveCancel = [&cancels] { ++cancels; }})
                           .receiveOn(DispatchQueue::main().shared_from_this())
                           .sink([resource](const auto&) {}, [resource](int) {});
    switch (end) {
      case End::completes:
        subject->sendCompletion(Completion<std::string>::finished());
        break;
      case End::cancelled: {
        std::set<AnyCancellable> kept;
        kept.insert(std::move(cancellable));
        break;
      }
      case End::goes:
        subject.reset();
        break;
    }
    DispatchQueue::main().sync([] {});
    EXPECT_EQ(resource.use_count(), 1) << static_cast<int>(end);
    EXPECT_EQ(cancels, end == End::cancelled ? 1 : 0);
  }
}

// Catches one-shot publishers that deliver without demand, twice, or an end after cancelling.
TEST(OperatorTests, JustAndFail) {
  using Any = AnyPublisher<int, std::string>;
  const auto just = std::make_shared<Recorder>(Demand::none());
  Any::just(5).receive(just);
  EXPECT_TRUE(just->values.empty());
  just->subscription->request(Demand::max(1));
  just->subscription->request(Demand::max(1));
  EXPECT_EQ(just->values, std::vector{5});
  EXPECT_EQ(just->endings, Strings{"finished"});
  const auto cancelled = std::make_shared<Recorder>(Demand::none());
  Any::just(5).receive(cancelled);
  cancelled->onValue = [&](int) { cancelled->subscription->cancel(); };
  cancelled->subscription->request(Demand::unlimited());
  EXPECT_EQ(cancelled->values, std::vector{5});
  EXPECT_EQ(cancelled->endings, Strings{});
  const auto failed = std::make_shared<Recorder>(Demand::none());
  Any::fail("bad").receive(failed);
  EXPECT_EQ(failed->endings, Strings{"bad"});
}

}  // namespace
}  // namespace ombrix::platform

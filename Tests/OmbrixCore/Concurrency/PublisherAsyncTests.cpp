#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "OmbrixCore/Concurrency/Publisher+Async.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix {
namespace {

using namespace std::chrono_literals;
using platform::AnyPublisher;
using platform::Async;
using platform::Completion;
using platform::startTask;

// Runs its first job at once, the others on the thread pool.
class FirstHere final : public platform::Executor {
 public:
  void post(platform::Job job) override {
    if (isFirst_.exchange(false)) return job();
    platform::ThreadPool::executor().post(std::move(job));
  }

 private:
  std::atomic<bool> isFirst_{true};
};

// A subject that counts cancellations.
template <class Output>
struct Source {
  platform::PassthroughSubject<Output, HTTPError> subject;
  std::atomic<int> cancels{0};

  AnyPublisher<Output, HTTPError> publisher() {
    return subject.handleEvents({.receiveCancel = [this] { ++cancels; }});
  }
  // Subscribes before it returns: what a subject sends before demand has reached it is lost.
  platform::Task<Output> start() {
    return asAsync(publisher()).start(std::make_shared<FirstHere>());
  }
};

template <class Body>
HTTPError failureOf(Body body) {
  try {
    body();
  } catch (const HTTPError& error) {
    return error;
  }
  return HTTPError::unknown();
}

// Catches values after the first that get through, and a subscription that outlives its use.
TEST(AsAsyncTests, TheFirstValueWinsAndEndsTheSubscription) {
  Source<int> source;
  const auto task = source.start();
  source.subject.send(1);
  source.subject.send(2);
  EXPECT_EQ(task.get(), 1);
  EXPECT_EQ(source.cancels, 1);
  EXPECT_EQ(asAsync(AnyPublisher<std::string, platform::Never>::just("now")).get(), "now");
}

// Catches failures and ends without a value that leave the caller waiting.
TEST(AsAsyncTests, FailuresAndMissingValuesAreThrown) {
  using Any = AnyPublisher<int, HTTPError>;
  EXPECT_EQ(failureOf([] { asAsync(Any::fail(HTTPError::forbidden())).get(); }),
            HTTPError::forbidden());
  Source<int> source;
  const auto task = source.start();
  source.subject.sendCompletion(Completion<HTTPError>::finished());
  EXPECT_EQ(failureOf([&] { task.get(); }), HTTPError::missingBody());
}

// Sends what the test says, also where a publisher should not.
struct Loose {
  using Subscriber = platform::Subscriber<platform::Void, HTTPError>;

  AnyPublisher<platform::Void, HTTPError> publisher() {
    return AnyPublisher<platform::Void, HTTPError>::subscribingWith(
        [this](const std::shared_ptr<Subscriber>& given) {
          subscriber = given;
          given->receiveSubscription(platform::detail::emptySubscription());
        });
  }

  std::shared_ptr<Subscriber> subscriber;
};

// Catches an end without a value that is reported at once for the empty tuple, or never, and a late
// value that is lost.
TEST(AsAsyncTests, TheEmptyTupleGetsHalfASecondOfGrace) {
  const auto clock = std::make_shared<testing::ManualClock>();
  const testing::ScopedService scoped(platform::services().clock, clock);
  for (const bool comesLate : {false, true}) {
    Loose source;
    const auto task = asAsync(source.publisher()).start(std::make_shared<FirstHere>());
    source.subscriber->receiveCompletion(Completion<HTTPError>::finished());
    const std::weak_ptr weak = source.subscriber;
    if (!comesLate) source.subscriber = nullptr;
    clock->advance(499ms);
    platform::DispatchQueue::main().sync([] {});
    EXPECT_FALSE(task.isFinished());
    if (comesLate) {
      source.subscriber->receiveValue({});
      source.subscriber = nullptr;
      EXPECT_NO_THROW(task.get());
      EXPECT_TRUE(weak.expired()) << "the timer is left behind";
    } else {
      clock->advance(1ms);
      EXPECT_EQ(failureOf([&] { task.get(); }), HTTPError::missingBody());
    }
  }
  Loose quick;
  const auto task = asAsync(quick.publisher()).start(std::make_shared<FirstHere>());
  quick.subscriber->receiveValue({});
  quick.subscriber->receiveCompletion(Completion<HTTPError>::finished());
  EXPECT_EQ(quick.subscriber.use_count(), 1) << "a timer is left behind";
  task.get();
}

// Catches a caller that resumes before the subscription is cancelled.
TEST(AsAsyncTests, TheSubscriptionIsCancelledBeforeTheCallerResumes) {
  for (int round = 0; round < 50; ++round) {
    Source<int> source;
    std::atomic<int> cancelsSeen = -1;
    auto body = [&]() -> Async<void> {
      auto first = asAsync(source.publisher());
      co_await std::move(first);
      cancelsSeen = source.cancels.load();
    };
    const auto task = startTask(body, std::make_shared<FirstHere>());
    source.subject.send(1);
    task.get();
    EXPECT_EQ(cancelsSeen, 1);
  }
}

// Catches waits that go on for ever when the publisher is gone without an answer.
TEST(AsAsyncTests, AWaitForAPublisherThatIsGoneEnds) {
  auto abandoned = AnyPublisher<int, HTTPError>::subscribingWith(
      [](const std::shared_ptr<platform::Subscriber<int, HTTPError>>& subscriber) {
        subscriber->receiveSubscription(platform::detail::emptySubscription());
      });
  auto silent = AnyPublisher<int, platform::Never>::subscribingWith(
      [](const std::shared_ptr<platform::Subscriber<int, platform::Never>>& subscriber) {
        subscriber->receiveSubscription(platform::detail::emptySubscription());
      });
  const auto through = [](const auto& publisher) {
    return publisher.map([](int value) { return value; })
        .handleEvents({})
        .receiveOn(platform::DispatchQueue::global().shared_from_this());
  };
  EXPECT_EQ(failureOf([&] { asAsync(through(abandoned)).get(); }), HTTPError::canceled());
  EXPECT_THROW(asAsync(through(silent)).get(), platform::CancellationError);
  EXPECT_EQ(failureOf([&] { asAsyncStream(through(abandoned)).next().get(); }),
            HTTPError::canceled());
  EXPECT_EQ(asAsyncStream(through(silent)).next().get(), std::nullopt);

  struct Refusing final : platform::Executor {
    void post(platform::Job) override {}
  };
  const platform::CurrentValueSubject<int, HTTPError> kept(1);
  EXPECT_EQ(failureOf([&] { asAsync(kept.receiveOn(std::make_shared<Refusing>())).get(); }),
            HTTPError::canceled());
  // The wait itself holds the last copy of the subject.
  EXPECT_THROW(asAsync(platform::PassthroughSubject<int, platform::Never>()).get(),
               platform::CancellationError);
}

// Catches a cancelled wait that goes on, or leaves its subscription behind.
TEST(AsAsyncTests, CancellingTheTaskCancelsTheSubscription) {
  Source<int> source;
  const auto task = source.start();
  task.cancel();
  EXPECT_THROW(task.get(), platform::CancellationError);
  EXPECT_EQ(source.cancels, 1);
}

// Catches lost or reordered values, an end that overtakes them, and a failure that is swallowed.
TEST(AsAsyncStreamTests, DeliversEverythingThenTheEnd) {
  for (const bool fails : {false, true}) {
    Source<int> source;
    auto stream = asAsyncStream(source.publisher());
    std::jthread sender([&] {
      for (int i = 0; i < 1'000; ++i) source.subject.send(i);
      source.subject.sendCompletion(fails ? Completion<HTTPError>::failure(HTTPError::forbidden())
                                          : Completion<HTTPError>::finished());
    });
    std::vector<int> values;
    auto consume = [&]() -> Async<void> {
      for (;;) {
        const auto value = co_await stream.next();
        if (!value) break;
        values.push_back(*value);
      }
    };
    const auto outcome = failureOf([&] { consume().get(); });
    EXPECT_EQ(outcome, fails ? HTTPError::forbidden() : HTTPError::unknown());
    ASSERT_EQ(values.size(), 1'000u);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_EQ(source.cancels, 0);
  }
}

// Catches subscriptions that outlive a dropped stream or a cancelled consumer.
TEST(AsAsyncStreamTests, TheEndOfTheStreamCancelsTheSubscription) {
  Source<int> dropped;
  {
    const auto stream = asAsyncStream(dropped.publisher());
  }
  EXPECT_EQ(dropped.cancels, 1);

  Source<int> cancelled;
  auto stream = asAsyncStream(cancelled.publisher());
  auto consume = [&]() -> Async<bool> {
    const auto value = co_await stream.next();
    co_return value.has_value();
  };
  const auto task = startTask(consume, std::make_shared<FirstHere>());
  task.cancel();
  EXPECT_FALSE(task.get());
  EXPECT_EQ(cancelled.cancels, 1);
}

}  // namespace
}  // namespace ombrix

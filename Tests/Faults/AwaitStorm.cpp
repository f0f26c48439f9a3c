// Eight threads start, share, await and cancel tasks over subjects that come, send, end and go, on
// executors some of which drop jobs: every wait ends, and nothing is delivered after its end.

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixCore/Concurrency/Publisher+Async.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Concurrency/Waiting.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"

namespace ombrix::faults {
namespace {

using platform::Async;
using platform::Task;
using Subject = platform::CurrentValueSubject<int, HTTPError>;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kStepsEach = 400;
constexpr std::size_t kSlots = 16;

// Drops one job in eight.
class Lossy final : public platform::Executor {
 public:
  void post(platform::Job job) override {
    if (++posted_ % 8 != 0) platform::ThreadPool::executor().post(std::move(job));
  }

 private:
  std::atomic<unsigned> posted_ = 0;
};

Async<int> awaitTask(Task<int> task) {
  const int value = co_await task;
  co_return value;
}

Async<int> sleepThenAnswer(std::chrono::microseconds time) {
  co_await platform::sleepFor(time);
  co_return 1;
}

Async<int> lastOf(platform::AsyncStream<int> stream) {
  int last = 0;
  for (;;) {
    const auto value = co_await stream.next();
    if (!value) break;
    last = *value;
  }
  co_return last;
}

Async<int> firstOf(std::vector<Task<int>> tasks) {
  auto wait = platform::whenAny(std::move(tasks));
  const auto first = co_await std::move(wait);
  co_return first.value;
}

class Storm {
 public:
  explicit Storm(std::uint64_t seed) : seed_(seed) {}

  void run(Outcomes& outcomes) {
    {
      std::vector<std::jthread> threads;
      for (std::size_t t = 0; t < kThreads; ++t) threads.emplace_back([this, t] { rage(t); });
    }
    sinks_ = {};
    subjects_ = {};  // nobody can send any more: what waits for them ends
    for (const auto& task : started_) outcomes.good(endOf(task));
    if (late_ > 0) outcomes.bad("a value came after its end");
  }

 private:
  struct Receiver {
    std::atomic<bool> hasEnded = false;
  };

  void rage(std::size_t thread) {
    std::mt19937_64 random(seed_ * kThreads + thread);
    for (std::size_t i = 0; i < kStepsEach; ++i) {
      const auto subject = subjectAt(random() % kSlots);
      switch (random() % 12) {
        case 0:
          begin(asAsync(subject.map([](int value) { return value + 1; })), random);
          break;
        case 1:
          begin(asAsync(subject.receiveOn(lossy_)), random);
          break;
        case 2:
          begin(lastOf(asAsyncStream(subject)), random);
          break;
        case 3:
          begin(sleepThenAnswer(std::chrono::microseconds(random() % 300)), random);
          break;
        case 4:
          if (const auto task = any(random)) begin(awaitTask(*task), random);
          break;
        case 5:
          if (const auto task = any(random)) {
            begin(platform::withTimeout(*task, std::chrono::microseconds(random() % 300)), random);
          }
          break;
        case 6:
          if (const auto task = any(random)) begin(firstOf({*task, *any(random)}), random);
          break;
        case 7:
          if (const auto task = any(random)) task->cancel();
          break;
        case 8:
          subscribe(subject, random() % kSlots);
          break;
        case 9:
          replace(random() % kSlots, random() % 2 == 0);
          break;
        default:
          subject.send(static_cast<int>(i));
          break;
      }
    }
  }

  void begin(Async<int> work, std::mt19937_64& random) {
    const auto task = std::move(work).start(
        random() % 3 == 0 ? std::shared_ptr<platform::Executor>(lossy_) : platform::poolExecutor());
    const std::lock_guard lock(mutex_);
    started_.push_back(task);
  }

  std::optional<Task<int>> any(std::mt19937_64& random) {
    const std::lock_guard lock(mutex_);
    if (started_.empty()) return std::nullopt;
    return started_[random() % started_.size()];
  }

  Subject subjectAt(std::size_t slot) {
    const std::lock_guard lock(mutex_);
    if (!subjects_[slot]) subjects_[slot].emplace(0);
    return *subjects_[slot];
  }

  // A subject that goes takes its subscribers along, whether or not it ended them before.
  void replace(std::size_t slot, bool completes) {
    std::optional<Subject> gone;
    {
      const std::lock_guard lock(mutex_);
      gone.swap(subjects_[slot]);
    }
    if (gone && completes) gone->sendCompletion(platform::Completion<HTTPError>::finished());
  }

  void subscribe(const Subject& subject, std::size_t slot) {
    const auto receiver = std::make_shared<Receiver>();
    auto token = subject.sink([receiver](const auto&) { receiver->hasEnded = true; },
                              [this, receiver](int) { late_ += receiver->hasEnded ? 1 : 0; });
    const std::lock_guard lock(mutex_);
    std::swap(sinks_[slot], token);
  }

  static const char* endOf(const Task<int>& task) {
    try {
      task.get();
      return "a wait ended with a value";
    } catch (const platform::CancellationError&) {
      return "a wait ended as cancelled";
    } catch (const platform::TimeoutError&) {
      return "a wait ended by its time-out";
    } catch (const HTTPError&) {
      return "a wait ended with the publisher's error";
    }
  }

  const std::uint64_t seed_;
  const std::shared_ptr<Lossy> lossy_ = std::make_shared<Lossy>();
  std::mutex mutex_;
  std::vector<Task<int>> started_;
  std::array<std::optional<Subject>, kSlots> subjects_;
  std::array<platform::AnyCancellable, kSlots> sinks_;
  std::atomic<int> late_ = 0;
};

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  for (std::size_t i = 0; i < plan.rounds(5, 2'000); ++i) Storm(plan.seed + i).run(outcomes);
}

}  // namespace ombrix::faults

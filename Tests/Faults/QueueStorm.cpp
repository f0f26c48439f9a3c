// Eight threads do all that can be done to operations and their queue, at once and by chance: each
// operation's work runs at most once, each finishes and says so once, no barrier is lost.

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixCore/Concurrency/AsyncOperation.hpp"
#include "OmbrixPlatform/Concurrency/Waiting.hpp"
#include "OmbrixTesting/Eventually.hpp"

namespace ombrix::faults {
namespace {

using platform::Async;
using platform::KeyValueObservingOptions;
using platform::NSOperation;
using platform::NSOperationQueue;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kOperationsEach = 150;

class Work final : public AsyncOperation {
 public:
  enum class End { atOnce, later, byOthers };

  explicit Work(End end) : end_(end) {
    token_ = observe("finished", KeyValueObservingOptions::newValue,
                     [this](const auto& change) { told += *change.newValue == 1 ? 1 : 0; });
  }

  Async<void> execute() override {
    ++runs;
    if (end_ == End::byOthers) co_return;
    if (end_ == End::later) co_await platform::sleepFor(std::chrono::microseconds(50));
    finish();
  }

  std::atomic<int> runs = 0, told = 0;

 private:
  const End end_;
  platform::ObservationToken token_;
};

class Storm {
 public:
  explicit Storm(std::uint64_t seed) : seed_(seed) { queue_->setMaxConcurrentOperationCount(4); }

  void run(Outcomes& outcomes) {
    {
      std::vector<std::jthread> threads;
      for (std::size_t t = 0; t < kThreads; ++t) threads.emplace_back([this, t] { rage(t); });
    }
    queue_->setMaxConcurrentOperationCount(-1);
    for (const auto& each : works_) each->finish();
    const bool isEmpty = testing::eventually([&] { return queue_->operationCount() == 0; });
    outcomes.expect(isEmpty, "the queue ran empty");
    if (!isEmpty) return;
    queue_->waitUntilAllOperationsAreFinished();
    outcomes.expect(barriersRun_ == barriersAdded_, "every barrier ran once");
    for (const auto& each : works_) {
      outcomes.expect(each->isFinished() && each->runs <= 1, "an operation ran once at most");
      outcomes.expect(each->told == 1, "an operation said once that it had finished",
                      std::to_string(each->told));
    }
  }

 private:
  void rage(std::size_t thread) {
    std::mt19937_64 random(seed_ * kThreads + thread);
    for (std::size_t i = 0; i < kOperationsEach; ++i) {
      add(random);
      for (int step = 0; step < 4; ++step) disturb(random);
    }
  }

  void add(std::mt19937_64& random) {
    const auto work = std::make_shared<Work>(static_cast<Work::End>(random() % 3));
    for (auto left = random() % 3; left > 0; --left) {
      if (const auto other = any(random)) work->addDependency(other);
    }
    queue_->addOperation(work);
    const std::lock_guard lock(mutex_);
    works_.push_back(work);
  }

  std::shared_ptr<Work> any(std::mt19937_64& random) {
    const std::lock_guard lock(mutex_);
    if (works_.empty()) return nullptr;
    return works_[works_.size() - 1 - random() % std::min<std::size_t>(works_.size(), 32)];
  }

  void disturb(std::mt19937_64& random) {
    const auto work = any(random);
    if (!work) return;
    switch (random() % 16) {
      case 0:
        work->start();
        break;
      case 1:
      case 2:
        work->cancel();
        break;
      case 3:
        ++barriersAdded_;
        queue_->addBarrierBlock([this] { ++barriersRun_; });
        break;
      case 4:
        queue_->setMaxConcurrentOperationCount(static_cast<std::ptrdiff_t>(1 + random() % 8));
        break;
      case 5:
        if (random() % 64 == 0) queue_->cancelAllOperations();
        break;
      case 6: {
        const auto token = work->observe(
            "state", KeyValueObservingOptions::newValue | KeyValueObservingOptions::initial,
            [](const auto&) {});
        std::this_thread::yield();
        break;
      }
      case 7:
        static_cast<void>(queue_->operations());
        static_cast<void>(work->dependencies());
        break;
      default:
        work->finish();
        break;
    }
  }

  const std::uint64_t seed_;
  const std::shared_ptr<NSOperationQueue> queue_ = NSOperationQueue::make("storm");
  std::mutex mutex_;
  std::vector<std::shared_ptr<Work>> works_;
  std::atomic<int> barriersAdded_ = 0, barriersRun_ = 0;
};

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  for (std::size_t i = 0; i < plan.rounds(5, 2'000); ++i) Storm(plan.seed + i).run(outcomes);
}

}  // namespace ombrix::faults

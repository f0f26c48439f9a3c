// Queues, actors, publishers and operations, each beside its nearest peer. Every pair counts the
// same work before it is timed: a lost or doubled job is an error.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <tbb/task_group.h>

#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <atomic>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <functional>
#include <latch>
#include <mutex>
#include <semaphore>
#include <thread>
#include <vector>

#include "OmbrixCore/Concurrency/AsyncOperation.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"

namespace {

using namespace ombrix;
using namespace ombrix::platform;

constexpr int kBatch = 1'000;

// What a batch frees is kept for the next one. Otherwise it depends on where some other block lies
// whether every batch pays for fresh pages.
[[maybe_unused]] const bool keepsMemory = ::mallopt(M_TRIM_THRESHOLD, 64 << 20) != 0;

// A queue with one thread, a mutex and a condition variable: what one writes by hand.
class PlainQueue {
 public:
  PlainQueue() : thread_([this](const std::stop_token& stop) { run(stop); }) {}
  void post(std::function<void()> job) {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
    posted_.notify_one();
  }

 private:
  void run(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (posted_.wait(lock, stop, [this] { return !jobs_.empty(); })) {
      auto job = std::move(jobs_.front());
      jobs_.pop_front();
      lock.unlock();
      job();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable_any posted_;
  std::deque<std::function<void()>> jobs_;
  std::jthread thread_;
};

// Posts a batch and waits until all of it ran.
template <class Post>
void postBatches(benchmark::State& state, Post post) {
  for (auto _ : state) {
    std::latch done(kBatch);
    int ran = 0;  // no lock: the queue under test is serial
    for (int i = 0; i < kBatch; ++i) {
      post([&] {
        ++ran;
        done.count_down();
      });
    }
    done.wait();
    if (ran != kBatch) state.SkipWithError("jobs were lost or overlapped");
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

void serialQueue(benchmark::State& state) {
  const auto queue = DispatchQueue::serial("benchmark");
  postBatches(state, [&](auto job) { queue->async(std::move(job)); });
}
void serialPlain(benchmark::State& state) {
  PlainQueue queue;
  postBatches(state, [&](auto job) { queue.post(std::move(job)); });
}
asio::thread_pool& asioPool() {
  static auto& pool = *new asio::thread_pool(4);
  return pool;
}
void serialAsioStrand(benchmark::State& state) {
  auto strand = asio::make_strand(asioPool());
  postBatches(state, [&](auto job) { asio::post(strand, std::move(job)); });
}

// One round trip: post to a queue, wait until it ran.
template <class Post>
void roundTrips(benchmark::State& state, Post post) {
  for (auto _ : state) {
    std::binary_semaphore done{0};
    post([&] { done.release(); });
    done.acquire();
  }
}
void tripQueue(benchmark::State& state) {
  const auto queue = DispatchQueue::serial("benchmark");
  roundTrips(state, [&](auto job) { queue->async(std::move(job)); });
}
void tripPlain(benchmark::State& state) {
  PlainQueue queue;
  roundTrips(state, [&](auto job) { queue.post(std::move(job)); });
}
void tripAsioStrand(benchmark::State& state) {
  auto strand = asio::make_strand(asioPool());
  roundTrips(state, [&](auto job) { asio::post(strand, std::move(job)); });
}

// A hop into an actor and back, nobody else inside; and the plain lock it stands for.
class Counter {
 public:
  Async<int> increment() {
    auto section = [&] { return ++count_; };
    const int count = co_await serial_.run(section);
    co_return count;
  }
  Async<int> loop(std::int64_t rounds) {
    int last = 0;
    for (std::int64_t i = 0; i < rounds; ++i) {
      auto section = [&] { return ++count_; };
      last = co_await serial_.run(section);
    }
    co_return last;
  }

 private:
  Serial serial_;
  int count_ = 0;
};

void actorSection(benchmark::State& state) {
  Counter counter;
  std::int64_t total = 0;
  for (auto _ : state) {
    counter.loop(kBatch).get();
    total += kBatch;
  }
  state.SetItemsProcessed(total);
  if (counter.increment().get() != total + 1) state.SkipWithError("sections were lost");
}
void actorOperation(benchmark::State& state) {
  Counter counter;
  auto loop = [&]() -> Async<void> {
    for (int i = 0; i < kBatch; ++i) co_await counter.increment();
  };
  for (auto _ : state) loop().get();
  state.SetItemsProcessed(state.iterations() * kBatch);
}
void actorMutex(benchmark::State& state) {
  std::mutex mutex;
  int count = 0;
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      const std::lock_guard lock(mutex);
      benchmark::DoNotOptimize(++count);
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
void actorAsioStrand(benchmark::State& state) {
  auto strand = asio::make_strand(asioPool());
  for (auto _ : state) {
    std::binary_semaphore done{0};
    int left = kBatch;
    std::function<void()> hop = [&] {
      if (--left == 0) {
        done.release();
      } else {
        asio::post(strand, hop);
      }
    };
    asio::post(strand, hop);
    done.acquire();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

// A value through three operators; and three nested functions.
void publishThree(benchmark::State& state) {
  const PassthroughSubject<int, Never> subject;
  std::int64_t sum = 0, expected = 0;
  const auto token =
      subject.map([](int v) { return v + 1; })
          .handleEvents({.receiveOutput = [](int v) { benchmark::DoNotOptimize(v); }})
          .map([](int v) { return v * 2; })
          .sink([&](int v) { sum += v; });
  for (auto _ : state) {
    subject.send(3);
    expected += 8;
  }
  if (sum != expected) state.SkipWithError("values were lost");
}
void callThree(benchmark::State& state) {
  std::mutex mutex;
  std::int64_t sum = 0;
  const std::function<void(int)> sink = [&](int v) { sum += v; };
  const std::function<void(int)> twice = [&](int v) { sink(v * 2); };
  const std::function<void(int)> watch = [&](int v) {
    benchmark::DoNotOptimize(v);
    twice(v);
  };
  const std::function<void(int)> first = [&](int v) { watch(v + 1); };
  for (auto _ : state) {
    {
      const std::lock_guard lock(mutex);
    }
    first(3);
  }
  benchmark::DoNotOptimize(sum);
}

// The processor time of the whole process, in seconds.
double processorTime() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// Counts what is done a batch at a time; `cpu` is the processor time of one, in all threads.
void countBatches(benchmark::State& state, double since) {
  const auto items = static_cast<double>(state.iterations() * kBatch);
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.counters["cpu"] = (processorTime() - since) / items;
}

// Starting and finishing operations; and bare tasks of a pool.
template <class Add, class Wait>
void operations(benchmark::State& state, Add add, Wait wait) {
  const double since = processorTime();
  for (auto _ : state) {
    std::atomic<int> ran = 0;
    for (int i = 0; i < kBatch; ++i) add(ran);
    wait();
    if (ran != kBatch) state.SkipWithError("operations were lost");
  }
  countBatches(state, since);
}
void blockOperations(benchmark::State& state) {
  const auto queue = NSOperationQueue::make();
  queue->setMaxConcurrentOperationCount(4);
  operations(
      state, [&](auto& ran) { queue->addOperation([&] { ++ran; }); },
      [&] { queue->waitUntilAllOperationsAreFinished(); });
}
void asyncOperations(benchmark::State& state) {
  struct Work final : AsyncOperation {
    explicit Work(std::atomic<int>& counter) : ran(counter) {}
    Async<void> execute() override {
      ++ran;
      finish();
      co_return;
    }
    std::atomic<int>& ran;
  };
  const auto queue = NSOperationQueue::make();
  queue->setMaxConcurrentOperationCount(4);
  operations(
      state, [&](auto& ran) { queue->addOperation(std::make_shared<Work>(ran)); },
      [&] { queue->waitUntilAllOperationsAreFinished(); });
}
void tbbTasks(benchmark::State& state) {
  tbb::task_group group;
  operations(state, [&](auto& ran) { group.run([&] { ++ran; }); }, [&] { group.wait(); });
}
void asioTasks(benchmark::State& state) {
  const double since = processorTime();
  std::latch* batch = nullptr;
  for (auto _ : state) {
    std::latch done(kBatch);
    batch = &done;
    for (int i = 0; i < kBatch; ++i) asio::post(asioPool(), [batch] { batch->count_down(); });
    done.wait();
  }
  countBatches(state, since);
}

BENCHMARK(serialQueue)->Name("post to serial/DispatchQueue")->UseRealTime();
BENCHMARK(serialPlain)->Name("post to serial/mutex+condition")->UseRealTime();
BENCHMARK(serialAsioStrand)->Name("post to serial/asio strand")->UseRealTime();
BENCHMARK(tripQueue)->Name("post and resume/DispatchQueue")->UseRealTime();
BENCHMARK(tripPlain)->Name("post and resume/mutex+condition")->UseRealTime();
BENCHMARK(tripAsioStrand)->Name("post and resume/asio strand")->UseRealTime();
BENCHMARK(actorSection)->Name("actor hop/section")->UseRealTime();
BENCHMARK(actorOperation)->Name("actor hop/Async operation")->UseRealTime();
BENCHMARK(actorMutex)->Name("actor hop/std::mutex")->UseRealTime();
BENCHMARK(actorAsioStrand)->Name("actor hop/asio strand")->UseRealTime();
BENCHMARK(publishThree)->Name("three operators/publisher");
BENCHMARK(callThree)->Name("three operators/std::function");
BENCHMARK(blockOperations)->Name("operation/NSOperationQueue block")->UseRealTime();
BENCHMARK(asyncOperations)->Name("operation/AsyncOperation")->UseRealTime();
BENCHMARK(tbbTasks)->Name("operation/oneTBB task_group")->UseRealTime();
BENCHMARK(asioTasks)->Name("operation/asio thread_pool")->UseRealTime();

}  // namespace

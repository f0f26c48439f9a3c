// The thread pool under loads: how soon an idle pool begins a job, how long a job waits behind busy
// lanes, and how many threads jobs make that only compute.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <latch>
#include <semaphore>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace {

using namespace ombrix::platform;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kBackgroundJobs = 200;

void computeFor(Clock::duration time) {
  const auto end = Clock::now() + time;
  while (Clock::now() < end) benchmark::DoNotOptimize(end);
}

// Times the start of a job by the clock on the wall; half of the waits are shorter than the first
// counter, all but one of a hundred shorter than the second.
template <class Post>
void timeStarts(benchmark::State& state, Clock::duration pause, Post post) {
  std::vector<double> waits;
  for (auto _ : state) {
    std::this_thread::sleep_for(pause);
    std::binary_semaphore started{0};
    Clock::time_point begin;
    const auto posted = Clock::now();
    post([&] {
      begin = Clock::now();
      started.release();
    });
    started.acquire();
    waits.push_back(std::chrono::duration<double>(begin - posted).count());
    state.SetIterationTime(waits.back());
  }
  std::ranges::sort(waits);
  state.counters["p50_us"] = 1e6 * waits[waits.size() / 2];
  state.counters["p99_us"] = 1e6 * waits[waits.size() * 99 / 100];
}

void wakeOurs(benchmark::State& state) {
  timeStarts(state, 1ms, [](auto job) { ThreadPool::shared().post(std::move(job)); });
}
void wakeAsio(benchmark::State& state) {
  static auto& pool = *new asio::thread_pool(4);
  timeStarts(state, 1ms, [](auto job) { asio::post(pool, std::move(job)); });
}

// The high lane never runs dry, and many background jobs wait.
void startBehindBusyLanes(benchmark::State& state) {
  std::atomic<bool> stop = false;
  std::atomic<int> running = 0;
  const auto keepBusy = [&](auto& self, DispatchPriority lane) -> void {
    computeFor(200us);
    if (stop) {
      --running;
    } else {
      ThreadPool::shared().post([&self, lane] { self(self, lane); }, lane);
    }
  };
  const auto begin = [&](DispatchPriority lane) {
    ++running;
    ThreadPool::shared().post([&, lane] { keepBusy(keepBusy, lane); }, lane);
  };
  for (unsigned i = 0; i < 16; ++i) begin(DispatchPriority::high);
  for (int i = 0; i < kBackgroundJobs; ++i) begin(DispatchPriority::background);
  const auto lane = static_cast<DispatchPriority>(state.range(0));
  timeStarts(state, 0ms, [&](auto job) { ThreadPool::shared().post(std::move(job), lane); });
  stop = true;
  while (running > 0) std::this_thread::sleep_for(1ms);
}

void threadsOfComputing(benchmark::State& state) {
  std::size_t most = 0;
  for (auto _ : state) {
    std::latch done(state.range(0));
    for (std::ptrdiff_t i = 0; i < state.range(0); ++i) {
      ThreadPool::shared().post([&] {
        computeFor(2ms);
        done.count_down();
      });
    }
    while (!done.try_wait()) {
      most = std::max(most, ThreadPool::shared().threadCount());
      std::this_thread::sleep_for(1ms);
    }
  }
  state.counters["threads"] = static_cast<double>(most);
}

BENCHMARK(wakeOurs)
    ->Name("begin a job of an idle pool/ThreadPool")
    ->Iterations(1000)
    ->UseManualTime();
BENCHMARK(wakeAsio)
    ->Name("begin a job of an idle pool/asio thread_pool")
    ->Iterations(1000)
    ->UseManualTime();
BENCHMARK(startBehindBusyLanes)
    ->Name("begin a job behind busy lanes/ThreadPool")
    ->ArgName("lane")
    ->Arg(static_cast<int>(DispatchPriority::normal))
    ->Arg(static_cast<int>(DispatchPriority::low))
    ->UseManualTime();
BENCHMARK(threadsOfComputing)->Name("compute/ThreadPool")->Arg(20)->Arg(600)->UseRealTime();

}  // namespace

// Uncontended and contended locks and the done once-guard, beside the platform's own.

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "OmbrixCore/Concurrency/Atomic.hpp"
#include "OmbrixCore/Concurrency/DispatchOnce.hpp"
#include "OmbrixCore/Concurrency/PThreadMutex.hpp"
#include "OmbrixCore/Concurrency/UnfairLock.hpp"

namespace {

using namespace ombrix;

// The C library leaves out the atomic instructions of its mutexes while a process has one thread;
// the product never has one only.
void startSecondThread(const benchmark::State&) {
  static std::jthread second([](const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any stopped;
    std::unique_lock lock(mutex);
    stopped.wait(lock, stop, [] { return false; });
  });
}

template <class Mutex>
void scopedPair(benchmark::State& state) {
  static Mutex mutex;
  static long count = 0;
  for (auto _ : state) mutex.sync([&] { benchmark::DoNotOptimize(++count); });
}

void standardPair(benchmark::State& state) {
  static std::mutex mutex;
  static long count = 0;
  for (auto _ : state) {
    const std::lock_guard lock(mutex);
    benchmark::DoNotOptimize(++count);
  }
}

void pthreadPair(benchmark::State& state) {
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  static long count = 0;
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    benchmark::DoNotOptimize(++count);
    pthread_mutex_unlock(&mutex);
  }
}

void atomicMutate(benchmark::State& state) {
  Atomic<long> box(0);
  for (auto _ : state) box.mutate([](long& value) { benchmark::DoNotOptimize(++value); });
}

void doneDispatchOnce(benchmark::State& state) {
  static DispatchOnce once;
  int runs = 0;
  for (auto _ : state) {
    once.perform([&] { ++runs; });
    benchmark::ClobberMemory();
  }
  if (runs > 1) state.SkipWithError("the block ran more than once");
}

void doneCallOnce(benchmark::State& state) {
  static std::once_flag once;
  int runs = 0;
  for (auto _ : state) {
    std::call_once(once, [&] { ++runs; });
    benchmark::ClobberMemory();
  }
  if (runs > 1) state.SkipWithError("the block ran more than once");
}

BENCHMARK(scopedPair<UnfairLock>)->Name("lock pair/UnfairLock")->Setup(startSecondThread);
BENCHMARK(scopedPair<PThreadMutex>)->Name("lock pair/PThreadMutex")->Setup(startSecondThread);
BENCHMARK(standardPair)->Name("lock pair/std::mutex")->Setup(startSecondThread);
BENCHMARK(pthreadPair)->Name("lock pair/pthread")->Setup(startSecondThread);
BENCHMARK(atomicMutate)->Name("mutate/Atomic")->Setup(startSecondThread);
BENCHMARK(scopedPair<UnfairLock>)
    ->Name("contended/UnfairLock")
    ->Threads(2)
    ->UseRealTime()
    ->Setup(startSecondThread);
BENCHMARK(standardPair)
    ->Name("contended/std::mutex")
    ->Threads(2)
    ->UseRealTime()
    ->Setup(startSecondThread);
BENCHMARK(doneDispatchOnce)->Name("once, done/DispatchOnce")->Setup(startSecondThread);
BENCHMARK(doneCallOnce)->Name("once, done/std::call_once")->Setup(startSecondThread);

}  // namespace

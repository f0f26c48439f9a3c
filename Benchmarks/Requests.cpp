// Requests over loopback, submitted from another thread than the one that transfers, and the
// processor time that each costs this process, beside libcurl's multi interface with nothing around
// it; and answers that the session's cache has in memory.

#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>

#include "Benchmarks/RequestClients.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"

namespace {

using namespace ombrix::platform;
using bursts::kServer;

/// From `resume` to the handler, when the memory tier has the answer.
void memoryCacheHit(benchmark::State& state) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.urlCache = URLCache::make(1 << 20, 0, std::nullopt);
  const auto session = URLSession::make(configuration);
  const URLRequest request(URL::parse(kServer).value());
  std::shared_ptr<URLSessionTask> task;
  const auto fetch = [&] {
    std::atomic<bool> isThere = false;
    task = session->dataTask(request, [&](auto, const auto&, const auto&) {
      isThere.store(true, std::memory_order_release);
      isThere.notify_one();
    });
    task->resume();
    isThere.wait(false, std::memory_order_acquire);
  };
  fetch();
  for (auto _ : state) fetch();
  if (task->metrics().fetchType != URLSessionTaskMetrics::FetchType::localCache) {
    state.SkipWithError("the answer does not come from the cache");
  }
}

BENCHMARK(bursts::requests<bursts::Session>)
    ->Name("request/ours")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(bursts::requests<bursts::CurlMulti>)
    ->Name("request/curl-multi")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(bursts::requests<bursts::Operations>)
    ->Name("request/client, operations")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(bursts::requests<bursts::Publishers>)
    ->Name("request/client, publishers")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(memoryCacheHit)->Name("request from memory/ours")->UseRealTime();

}  // namespace

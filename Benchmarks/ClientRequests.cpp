// Answers that the whole client's cache has, in memory and on disk.

#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <string>

#include "Benchmarks/RequestBursts.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedServerAPI.hpp"

namespace {

using namespace ombrix;
using bursts::kBodyBytes;
using bursts::kServer;

constexpr int kStoredAnswers = 20'000;

ServerConfiguration configuration() {
  auto servers = ServerConfiguration::defaults();
  servers.production = *platform::URL::parse(kServer);
  return servers;
}

bool isWhole(const OmbrixServerAPI::Result<HTTPAnswer>& result) {
  return result && result->data.size() == kBodyBytes;
}

/// Asks for one answer and waits for it.
bool fetch(OmbrixServerAPI& client, const std::string& path) {
  struct Answer {
    std::atomic<int> state = 0;
  };
  // The caller may be gone before the completion has told it.
  const auto answer = std::make_shared<Answer>();
  client.completionWrapper<HTTPAnswer>(client.publisher(path), [answer](const auto& result) {
    answer->state = isWhole(result) ? 1 : 2;
    answer->state.notify_one();
  });
  answer->state.wait(0);
  return answer->state == 1;
}

void memoryHit(benchmark::State& state) {
  const testing::ScopedDirectories directories;
  const testing::ScopedServerAPI api(configuration());
  if (!fetch(api.client(), "one")) state.SkipWithError("an answer is not whole");
  for (auto _ : state) benchmark::DoNotOptimize(fetch(api.client(), "one"));
}

/// Each answer once, of a client that has only just begun.
void diskHit(benchmark::State& state) {
  const testing::ScopedDirectories directories;
  {
    const testing::ScopedServerAPI api(configuration());
    for (int i = 0; i < kStoredAnswers; ++i) {
      if (!fetch(api.client(), std::to_string(i))) state.SkipWithError("an answer is not whole");
    }
    api.client().session()->configuration().urlCache->flush();
  }
  const testing::ScopedServerAPI api(configuration());
  int i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(fetch(api.client(), std::to_string(i++)));
}

BENCHMARK(memoryHit)->Name("request from memory/client")->UseRealTime();
BENCHMARK(diskHit)->Name("request from disk/client")->UseRealTime()->Iterations(kStoredAnswers);

}  // namespace

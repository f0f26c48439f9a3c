// Reading settings, as every formatted value does, beside a locked map of the same content; and
// what a change costs, beside writing the same file anew.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <unordered_map>

#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace {

using ombrix::testing::ScopedSettings;

/// The least that a shared store of texts can do.
class LockedMap {
 public:
  std::string stringForKey(const std::string& key) {
    const std::lock_guard lock(mutex_);
    const auto it = values_.find(key);
    return it == values_.end() ? std::string() : it->second;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::string> values_{{"units", "miles"}, {"other", "value"}};
};

void MetricType(benchmark::State& state) {
  const ScopedSettings scoped("miles");
  LockedMap map;
  if (scoped.settings().metricType() != map.stringForKey("units")) std::abort();
  for (auto _ : state) benchmark::DoNotOptimize(scoped.settings().metricType());
}
BENCHMARK(MetricType)->Name("metricType/ombrix");

void MetricTypeMasked(benchmark::State& state) {
  ombrix::testing::ScopedDirectories directories;
  directories.setGroupContainer(true);
  const ScopedSettings scoped("miles");
  ombrix::OmbrixWormhole()->passMessageObject("british", "units");
  scoped.settings().maskViaWormhole();
  if (scoped.settings().metricType() != "british") std::abort();
  for (auto _ : state) benchmark::DoNotOptimize(scoped.settings().metricType());
}
BENCHMARK(MetricTypeMasked)->Name("metricType/ombrix-companion");

void StringForKey(benchmark::State& state) {
  const ScopedSettings scoped("miles");
  for (auto _ : state) benchmark::DoNotOptimize(scoped.defaults().stringForKey("units"));
}
BENCHMARK(StringForKey)->Name("stringForKey/ombrix-watched");

void StringForKeyUnwatched(benchmark::State& state) {
  const ScopedSettings scoped("miles");
  const auto elsewhere = scoped.elsewhere();
  for (auto _ : state) benchmark::DoNotOptimize(elsewhere->stringForKey("units"));
}
BENCHMARK(StringForKeyUnwatched)->Name("stringForKey/ombrix-unwatched");

void LockedMapRead(benchmark::State& state) {
  LockedMap map;
  const std::string key = "units";
  for (auto _ : state) benchmark::DoNotOptimize(map.stringForKey(key));
}
BENCHMARK(LockedMapRead)->Name("read/locked-map");

void Write(benchmark::State& state) {
  const ScopedSettings scoped("miles");
  scoped.settings().disableSync();
  long n = 0;
  for (auto _ : state) scoped.defaults().setObject(++n, "n");
}
BENCHMARK(Write)->Name("set/ombrix")->UseRealTime();

/// The setter of a setting that is synced, with its observers, until it returns.
void SetMetricType(benchmark::State& state) {
  const ScopedSettings scoped("miles");
  int told = 0;
  const auto token = scoped.settings().observe(
      "metricType", ombrix::platform::KeyValueObservingOptions::none, [&](const auto&) { ++told; });
  bool isMiles = true;
  for (auto _ : state) {
    isMiles = !isMiles;
    scoped.settings().setMetricType(isMiles ? "miles" : "kilometers");
  }
  if (told == 0) std::abort();
}
BENCHMARK(SetMetricType)->Name("setMetricType/ombrix")->UseRealTime();

/// The same with the cloud on an etcd server that does not answer.
void SetOnEtcd(benchmark::State& state) {
  const ombrix::testing::ScopedDir dir;
  const auto cloud = ombrix::platform::makeEtcdUbiquitousKeyValueStore(
      {.endpoint = *ombrix::platform::URL::parse("http://127.0.0.1:1"),
       .prefix = "user/",
       .folder = dir.path(),
       .domain = "phone"});
  long n = 0;
  for (auto _ : state) cloud->setObject(++n, "n");
  if (cloud->longLongForKey("n") != n) std::abort();
}
BENCHMARK(SetOnEtcd)->Name("set/ombrix-etcd")->UseRealTime();

}  // namespace

// Measuring a day, beside a plain pass that adds up ways and rises.

#include <benchmark/benchmark.h>

#include <cstdlib>

#include "OmbrixDay/Measuring/DayMeasurer.hpp"
#include "Tests/OmbrixDay/MadeUpDay.hpp"

namespace {

using ombrix::CLLocation;

const std::vector<CLLocation>& dayOfFixes() {
  static const std::vector<CLLocation> fixes =
      ombrix::testing::makeUpDay({.rides = 11, .riseMeters = 800, .hasHalts = true}).fixes;
  return fixes;
}

void plainPass(benchmark::State& state) {
  const auto& fixes = dayOfFixes();
  for (auto _ : state) {
    double rise = 0;
    for (std::size_t i = 1; i < fixes.size(); ++i) {
      rise += std::abs(fixes[i].altitude - fixes[i - 1].altitude);
    }
    benchmark::DoNotOptimize(rise + ombrix::distanceAlong(fixes));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(fixes.size()));
}

void measuredDay(benchmark::State& state) {
  const auto& fixes = dayOfFixes();
  if (ombrix::measureDay(fixes).totals.runs != 11) std::abort();
  for (auto _ : state) benchmark::DoNotOptimize(ombrix::measureDay(fixes));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(fixes.size()));
}

BENCHMARK(plainPass)->Name("day/plain-pass")->Unit(benchmark::kMicrosecond);
BENCHMARK(measuredDay)->Name("day/measured")->Unit(benchmark::kMicrosecond);

}  // namespace

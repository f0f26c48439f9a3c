// Median, unique and grouping of a million values beside the standard library's own ways.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "OmbrixCore/Extensions/Search/Chunked.hpp"
#include "OmbrixCore/Extensions/Search/Statistics.hpp"
#include "OmbrixCore/Extensions/Search/Unique.hpp"

namespace {

using Values = std::vector<std::int64_t>;
constexpr std::size_t kCount = 1'000'000;

/// A million values out of `distinct`; 0 stands for all of 64 bits.
const Values& values(std::int64_t distinct) {
  static std::unordered_map<std::int64_t, Values> made;
  Values& drawn = made[distinct];
  std::mt19937_64 random(9);
  const auto bound = static_cast<std::uint64_t>(distinct);
  while (drawn.size() < kCount) {
    const std::uint64_t number = random();
    // Spread out, so that no answer comes from the values' being small.
    drawn.push_back(static_cast<std::int64_t>(
        bound == 0 ? number >> 1 : (number % bound) * 0x0F4B'9A31'7C15'0B65U >> 1));
  }
  return drawn;
}

double medianByPartition(const Values& input) {
  Values copy = input;
  const auto middle = copy.begin() + static_cast<std::ptrdiff_t>(copy.size() / 2);
  std::nth_element(copy.begin(), middle, copy.end());
  const std::int64_t lower = *std::max_element(copy.begin(), middle);
  return static_cast<double>(lower + *middle) * 0.5;
}

Values uniqueBySet(const Values& input) {
  Values result;
  std::unordered_set<std::int64_t> seen;
  for (const auto value : input) {
    if (seen.insert(value).second) result.push_back(value);
  }
  return result;
}

auto groupByMap(const Values& input) {
  std::unordered_map<std::int64_t, Values> groups;
  for (const auto value : input) groups[value].push_back(value);
  return groups;
}

auto groupByUs(const Values& input) { return ombrix::chunked(input, std::identity{}); }

void require(bool agrees) {
  if (agrees) return;
  std::fputs("the contenders disagree\n", stderr);
  std::abort();
}

bool sameGroups(const Values& input) {
  const auto ours = groupByUs(input);
  const auto theirs = groupByMap(input);
  return ours.size() == theirs.size() && std::ranges::all_of(theirs, [&](const auto& group) {
           return std::ranges::equal(ours[group.first], group.second);
         });
}

template <class Operation>
void run(benchmark::State& state, Operation operation) {
  const Values& input = values(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(operation(input));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(input.size()));
}

void medianOurs(benchmark::State& state) {
  const Values& input = values(state.range(0));
  require(ombrix::median(input) == medianByPartition(input));
  run(state, [](const Values& in) { return ombrix::median(in); });
}
void medianNthElement(benchmark::State& state) { run(state, medianByPartition); }

void uniqueOurs(benchmark::State& state) {
  const Values& input = values(state.range(0));
  require(ombrix::unique(input) == uniqueBySet(input));
  run(state, [](const Values& in) { return ombrix::unique(in); });
}
void uniqueUnorderedSet(benchmark::State& state) { run(state, uniqueBySet); }

void groupOurs(benchmark::State& state) {
  require(sameGroups(values(state.range(0))));
  run(state, groupByUs);
}
void groupUnorderedMap(benchmark::State& state) { run(state, groupByMap); }

BENCHMARK(medianOurs)->Name("median/ours")->Arg(0)->Arg(1'000);
BENCHMARK(medianNthElement)->Name("median/nth_element")->Arg(0)->Arg(1'000);
BENCHMARK(uniqueOurs)->Name("unique/ours")->Arg(0)->Arg(100'000)->Arg(100);
BENCHMARK(uniqueUnorderedSet)->Name("unique/unordered_set")->Arg(0)->Arg(100'000)->Arg(100);
BENCHMARK(groupOurs)->Name("group/ours")->Arg(0)->Arg(100'000)->Arg(100);
BENCHMARK(groupUnorderedMap)->Name("group/unordered_map")->Arg(0)->Arg(100'000)->Arg(100);

}  // namespace

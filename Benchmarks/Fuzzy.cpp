// Edit distance and subsequence scores beside the literal table and formula.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "OmbrixCore/Extensions/Fuzzy/FuzzyPattern.hpp"

namespace {

std::string letters(std::mt19937_64& random, std::size_t count) {
  std::string text;
  while (text.size() < count) text += static_cast<char>('a' + random() % 26);
  return text;
}

double plainLevenshtein(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t c = 0; c <= b.size(); ++c) row[c] = c;
  for (std::size_t r = 1; r <= a.size(); ++r) {
    std::size_t diagonal = row[0];
    row[0] = r;
    for (std::size_t c = 1; c <= b.size(); ++c) {
      const std::size_t above = row[c];
      row[c] = a[r - 1] == b[c - 1] ? diagonal : 1 + std::min({above, diagonal, row[c - 1]});
      diagonal = above;
    }
  }
  return 1 - static_cast<double>(row.back()) / static_cast<double>(std::max(a.size(), b.size()));
}

/// The score's formula as it is worded, on bytes.
std::int64_t plainScore(const std::string& text, const std::string& pattern) {
  std::vector<std::vector<std::int64_t>> rows(pattern.size(),
                                              std::vector<std::int64_t>(text.size(), INT64_MIN));
  for (std::size_t r = 0; r < pattern.size(); ++r) {
    bool found = false;
    for (std::size_t c = r; c < text.size(); ++c) {
      if (text[c] != pattern[r]) continue;
      std::int64_t best = r == 0 ? 0 : INT64_MIN;
      for (std::size_t k = 0; r > 0 && k < c; ++k) {
        if (rows[r - 1][k] == INT64_MIN) continue;
        best = std::max(best, rows[r - 1][k] - static_cast<std::int64_t>(c - k - 1));
      }
      if (best == INT64_MIN) continue;
      rows[r][c] = best + 1;
      found = true;
    }
    if (!found) return INT64_MIN;
  }
  return std::ranges::max(rows.back());
}

void require(bool agrees) {
  if (agrees) return;
  std::fputs("the contenders disagree\n", stderr);
  std::abort();
}

struct Pairs {
  std::string text;
  std::vector<std::string> others;
};

Pairs pairsOf(std::int64_t length) {
  std::mt19937_64 random(4);
  Pairs pairs{letters(random, static_cast<std::size_t>(length)), {}};
  while (pairs.others.size() < 64) pairs.others.push_back(letters(random, pairs.text.size()));
  return pairs;
}

template <class Score>
void levenshtein(benchmark::State& state, const Pairs& pairs, Score score) {
  for (const auto& other : pairs.others)
    require(score(other) == plainLevenshtein(pairs.text, other));
  for (auto _ : state) {
    for (const auto& other : pairs.others) benchmark::DoNotOptimize(score(other));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(pairs.others.size()));
}

void levenshteinPrepared(benchmark::State& state) {
  const Pairs pairs = pairsOf(state.range(0));
  const ombrix::LevenshteinPattern pattern(pairs.text, false, false);
  levenshtein(state, pairs, [&](const std::string& other) { return pattern.scoreTo(other); });
}

void levenshteinOnePair(benchmark::State& state) {
  const Pairs pairs = pairsOf(state.range(0));
  levenshtein(state, pairs, [&](const std::string& other) {
    return ombrix::levenshteinDistanceScore(pairs.text, other, false, false);
  });
}

void levenshteinTable(benchmark::State& state) {
  const Pairs pairs = pairsOf(state.range(0));
  levenshtein(state, pairs,
              [&](const std::string& other) { return plainLevenshtein(pairs.text, other); });
}

/// 10,000 names of 6 to 20 letters; those that a pattern of four of their letters is found in
/// first.
const std::vector<std::string>& names(bool matching) {
  static const auto both = [] {
    std::mt19937_64 random(8);
    std::vector<std::string> sorted[2];
    while (sorted[0].size() < 10'000 || sorted[1].size() < 10'000) {
      std::string name = letters(random, 6 + random() % 15);
      const bool isMatch = random() % 2 == 0;
      for (std::size_t i = 0; isMatch && i < 4; ++i) name[i * name.size() / 4] = "alps"[i];
      const bool found = ombrix::fuzzyScore(name, "alps").has_value();
      if (sorted[found ? 1 : 0].size() < 10'000) sorted[found ? 1 : 0].push_back(name);
    }
    return std::vector{sorted[0], sorted[1]};
  }();
  return both[matching ? 1 : 0];
}

template <class Operation>
void subsequence(benchmark::State& state, Operation operation) {
  const auto& texts = names(state.range(0) != 0);
  for (auto _ : state) {
    for (const auto& text : texts) benchmark::DoNotOptimize(operation(text));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}

void subsequenceScore(benchmark::State& state) {
  const ombrix::FuzzyPattern pattern("alps");
  for (const auto& text : names(true)) require(pattern.score(text) == plainScore(text, "alps"));
  subsequence(state, [&](const std::string& text) { return pattern.score(text); });
}

void subsequenceMatrix(benchmark::State& state) {
  const ombrix::FuzzyPattern pattern("alps");
  for (const auto& text : names(true))
    require(pattern.match(text)->score == plainScore(text, "alps"));
  subsequence(state, [&](const std::string& text) { return pattern.match(text); });
}

void subsequenceFormula(benchmark::State& state) {
  subsequence(state, [](const std::string& text) { return plainScore(text, "alps"); });
}

BENCHMARK(levenshteinPrepared)->Name("levenshtein/ours")->Arg(10)->Arg(40)->Arg(1'000);
BENCHMARK(levenshteinOnePair)->Name("levenshtein/one_pair")->Arg(10)->Arg(40)->Arg(1'000);
BENCHMARK(levenshteinTable)->Name("levenshtein/table")->Arg(10)->Arg(40)->Arg(1'000);
BENCHMARK(subsequenceScore)->Name("subsequence/ours")->ArgName("match")->Arg(1)->Arg(0);
BENCHMARK(subsequenceMatrix)->Name("subsequence/with_matrix")->ArgName("match")->Arg(1)->Arg(0);
BENCHMARK(subsequenceFormula)->Name("subsequence/formula")->ArgName("match")->Arg(1)->Arg(0);

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "OmbrixCore/Extensions/Fuzzy/FuzzyPattern.hpp"
#include "OmbrixPlatform/Text/TextSegmentation.hpp"
#include "OmbrixTesting/Sanitizers.hpp"

namespace ombrix {
namespace {

using Cells = std::vector<std::optional<std::int64_t>>;
constexpr std::nullopt_t _ = std::nullopt;

std::vector<std::string> charactersOf(std::string_view text) {
  const platform::TextCharacters characters(text);
  std::vector<std::string> all;
  for (std::size_t i = 0; i < characters.size(); ++i) all.emplace_back(characters[i]);
  return all;
}

/// The rule as it is worded, without any shortcut: cubic.
std::optional<FuzzyMatch> plainMatch(std::string_view text, std::string_view pattern) {
  const auto in = charactersOf(text);
  const auto wanted = charactersOf(pattern);
  FuzzyMatch match{0, {Cells(in.size() * wanted.size()), in.size(), wanted.size()}};
  auto& cells = match.matrix.array;
  std::size_t start = 0;
  for (std::size_t r = 0; r < wanted.size(); ++r) {
    std::optional<std::size_t> first;
    match.score = std::numeric_limits<std::int64_t>::min();
    for (std::size_t c = start; c < in.size(); ++c) {
      if (in[c] != wanted[r]) continue;
      std::int64_t value = 1;
      if (r > 0) {
        value = std::numeric_limits<std::int64_t>::min();
        for (std::size_t k = 0; k < c; ++k) {
          const auto& above = cells[(r - 1) * in.size() + k];
          if (above) value = std::max(value, *above - static_cast<std::int64_t>(c - k - 1));
        }
        ++value;
      }
      cells[r * in.size() + c] = value;
      match.score = std::max(match.score, value);
      if (!first) first = c;
    }
    if (!first) return std::nullopt;
    start = *first + 1;
  }
  return match;
}

std::size_t plainDistance(std::string_view text, std::string_view other) {
  const auto a = charactersOf(text);
  const auto b = charactersOf(other);
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
  return row.back();
}

/// A text of a few characters that are repeated much, in one script or several.
std::string randomText(std::mt19937_64& random, std::size_t longest) {
  static const std::vector<std::string> kAlphabets[] = {
      {"a", "b", "c"},
      {"a", "é", "e\xCC\x81", "b", "\r\n"},
      {"山", "が", "か\xE3\x82\x99", "한", "a"},
      {"\U0001F468‍\U0001F469‍\U0001F467", "\U0001F468‍\U0001F469‍\U0001F466", "\U0001F3FD",
       "x"},
  };
  const auto& alphabet = kAlphabets[random() % std::size(kAlphabets)];
  std::string text;
  for (auto left = random() % (longest + 1); left > 0; --left) {
    text += alphabet[random() % alphabet.size()];
  }
  return text;
}

// Catches a score that counts gaps wrongly, and a matrix laid out the other way round.
TEST(FuzzyMatchTests, ScoresAndMatrix) {
  EXPECT_EQ(fuzzyMatch("abc", "abc"), (FuzzyMatch{3, {{1, _, _, _, 2, _, _, _, 3}, 3, 3}}));
  EXPECT_EQ(fuzzyMatch("abc", "ac"), (FuzzyMatch{1, {{1, _, _, _, _, 1}, 3, 2}}));
  EXPECT_EQ(fuzzyMatch("aab", "ab"), (FuzzyMatch{2, {{1, 1, _, _, _, 2}, 3, 2}}));
  EXPECT_EQ(fuzzyMatch("abc", ""), (FuzzyMatch{0, {{}, 3, 0}}));
  EXPECT_EQ(fuzzyMatch("", ""), (FuzzyMatch{0, {{}, 0, 0}}));
  EXPECT_EQ(fuzzyMatch("abc", "abd"), std::nullopt);
  EXPECT_EQ(fuzzyMatch("abc", "cb"), std::nullopt);
  EXPECT_EQ(fuzzyMatch("", "a"), std::nullopt);
  EXPECT_EQ(fuzzyScore("a____b", "ab"), -2);
  EXPECT_EQ(fuzzyScore("École",
                       "E\xCC\x81"
                       "c"),
            2)
      << "equivalent forms are equal";
  EXPECT_EQ(fuzzyScore("E\xCC\x81"
                       "cole",
                       "Ec"),
            std::nullopt)
      << "a mark is part of its letter";
}

// Catches shortcuts that change a cell: each script and mixture against the plain rule.
TEST(FuzzyMatchTests, AgreesWithThePlainRule) {
  std::mt19937_64 random(11);
  for (int round = 0; round < 3'000; ++round) {
    const std::string text = randomText(random, round % 50 == 0 ? 300 : 12);
    const std::string pattern = randomText(random, 4);
    const auto expected = plainMatch(text, pattern);
    ASSERT_EQ(fuzzyMatch(text, pattern), expected) << text << " / " << pattern;
    const auto score = expected ? std::optional(expected->score) : std::nullopt;
    ASSERT_EQ(fuzzyScore(text, pattern), score) << text << " / " << pattern;
  }
}

// Catches a folded pass that wins ties, or counts below 1.
TEST(FuzzyMatchTests, NormalizedPicksTheBetterPass) {
  const struct {
    const char *text, *pattern;
    std::optional<std::int64_t> score;
  } cases[] = {
      {"École", "ecole", 5},      {"ecole", "ÉCOLE", 5},
      {"Val d'Isère", "VAL", 3},  {"é___b", "eb", std::nullopt},  // folded alone, -1
      {"é_b", "eb", 1},                                           // folded alone, just enough
      {"e__b éb", "eb", 2},                                       // both, the folded one is better
      {"a_____b", "ab", -3},                                      // plain ASCII may be negative
      {"abc", "x", std::nullopt},
  };
  for (const auto& [text, pattern, score] : cases) {
    EXPECT_EQ(normalizedFuzzyScore(text, pattern), score) << text;
    const auto match = normalizedFuzzyMatch(text, pattern);
    EXPECT_EQ(match ? std::optional(match->score) : std::nullopt, score) << text;
    EXPECT_EQ(FuzzyPattern(pattern).score(text), score) << text;
  }
  // Both passes score 2; the plain one's matrix has one cell in its first row, the folded one's
  // two.
  EXPECT_EQ(normalizedFuzzyMatch("éxex", "ex")->matrix.array, (Cells{_, _, 1, _, _, _, _, 2}));
}

// Catches an unstable ranking, and one that keeps texts without a match.
TEST(FuzzyMatchTests, RanksAList) {
  const std::vector<std::string> names{"Zermatt", "Ischgl", "Zürs", "St. Anton", "Zurich", "zu"};
  const std::vector<RankedText> expected{{2, 2}, {4, 2}, {5, 2}};
  EXPECT_EQ(rankedByFuzzyScore(names, FuzzyPattern("ZU")), expected);
}

// Catches another ordering of scores than by their number.
TEST(ScoreTests, OnlyTheValueCounts) {
  EXPECT_EQ((String::Score{1, "a"}), (String::Score{1, "b"}));
  EXPECT_LT((String::Score{1, "b"}), (String::Score{2, "a"}));
}

// Catches flags applied in part, characters counted as bytes, and a "mended" 0/0.
TEST(LevenshteinTests, Scores) {
  const struct {
    const char *text, *other;
    bool ignoreCase, trim;
    double score;
  } cases[] = {
      {"kitten", "sitting", false, false, 1 - 3.0 / 7},
      {"abc", "abc", false, false, 1},
      {"", "abc", false, false, 0},
      {"A", "a", false, false, 0},
      {"A", "a", true, false, 1},
      {" \n a\xC2\xA0", "a", false, true, 1},
      {" a", "a", false, false, 0.5},
      {"ÉÉ", "e\xCC\x81é", true, false, 1},
      {"añb", "ab", false, false, 1 - 1.0 / 3},
      {"ΣΑΣ", "σασ", true, false, 1},
  };
  for (const auto& [text, other, ignoreCase, trim, score] : cases) {
    EXPECT_EQ(levenshteinDistanceScore(text, other, ignoreCase, trim), score) << text;
    EXPECT_EQ(levenshteinDistanceScore(other, text, ignoreCase, trim), score) << text;
    EXPECT_EQ(LevenshteinPattern(text, ignoreCase, trim).scoreTo(other), score) << text;
  }
  EXPECT_TRUE(std::isnan(levenshteinDistanceScore("", "", false, false)));
  EXPECT_TRUE(std::isnan(LevenshteinPattern(" ", false, true).scoreTo("")));
}

// Catches carries lost between blocks, shared ends trimmed too far, and characters of one text that
// are taken for others: 100,000 pairs of mixed scripts against the plain table.
TEST(LevenshteinTests, AgreesWithThePlainTable) {
  const int pairs = ombrix::testing::kUnderSanitizer ? 5'000 : 100'000;
  std::mt19937_64 random(12);
  for (int round = 0; round < pairs; ++round) {
    const std::size_t longest = round % 500 == 0 ? 300 : round % 50 == 0 ? 90 : 10;
    const std::string text = randomText(random, longest);
    const std::string other = randomText(random, longest);
    const auto count = std::max(charactersOf(text).size(), charactersOf(other).size());
    if (count == 0) continue;
    const double expected =
        1 - static_cast<double>(plainDistance(text, other)) / static_cast<double>(count);
    ASSERT_EQ(levenshteinDistanceScore(text, other, false, false), expected)
        << text << '/' << other;
    ASSERT_EQ(LevenshteinPattern(text, false, false).scoreTo(other), expected)
        << text << '/' << other;
  }
}

}  // namespace
}  // namespace ombrix

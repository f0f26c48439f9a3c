#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "OmbrixCore/Extensions/Search/Chunked.hpp"
#include "OmbrixCore/Extensions/Search/Unique.hpp"

namespace ombrix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <class Value>
std::vector<Value> plainUnique(const std::vector<Value>& values) {
  std::vector<Value> result;
  std::unordered_set<Value> seen;
  for (const Value& value : values) {
    if (seen.insert(value).second) result.push_back(value);
  }
  return result;
}

// Catches a lost order, equal values kept twice, and a range that is read twice.
TEST(UniqueTests, KeepsTheFirstOfEach) {
  EXPECT_THAT(unique(std::vector{3, 1, 3, 2, 1}), ElementsAre(3, 1, 2));
  EXPECT_THAT(unique(std::vector<std::string>{"b", "a", "b"}), ElementsAre("b", "a"));
  EXPECT_THAT(unique(std::vector{0.0, -0.0, 1.0}), ElementsAre(0.0, 1.0));
  EXPECT_THAT(unique(std::vector{true, true, false}), ElementsAre(true, false));
  EXPECT_THAT(unique(std::vector<int>{}), IsEmpty());
  std::istringstream once("5 4 5");
  EXPECT_THAT(unique(std::ranges::istream_view<int>(once)), ElementsAre(5, 4));
  const double kNaN = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(unique(std::vector{kNaN, kNaN}).size(), 2U);
}

/// A text of 16 bytes whose `std::hash` is that of all others made here: the second half undoes, in
/// the standard library's hash, what the first has done.
std::string collidingText(std::uint64_t number) {
  constexpr std::uint64_t kMultiplier = 0xC6A4A7935BD1E995U;
  std::uint64_t inverse = 1;
  for (int i = 0; i < 6; ++i) inverse *= 2 - kMultiplier * inverse;
  const auto shifted = [](std::uint64_t word) { return word ^ word >> 47; };
  const auto hashed = [&](std::uint64_t word) { return shifted(word * kMultiplier) * kMultiplier; };
  const std::uint64_t start = 0xC70F6907U ^ 16 * kMultiplier;
  const std::uint64_t second = (start ^ hashed(number)) * kMultiplier;
  const std::uint64_t words[] = {number, shifted(second * inverse) * inverse};
  return {reinterpret_cast<const char*>(words), sizeof words};
}

// Catches a mix that is known outside: numbers that any fixed multiplier would send to one place,
// and texts that the standard library's hash does.
TEST(UniqueTests, ChosenKeysDoNotCollide) {
  const detail::FirstSeenTable<std::uint64_t> table;
  for (const std::uint64_t inverse : {0xF1DE'83E1'9937'733DU, std::uint64_t{1}}) {
    std::set<std::uint32_t> hashes;
    for (std::uint64_t i = 0; i < 20'000; ++i) {
      const std::uint64_t chosen = (std::uint64_t{7} << 32 | i) * inverse;
      hashes.insert(table.hashOf(chosen ^ chosen >> 32));
    }
    EXPECT_GT(hashes.size(), 19'900U);
  }
  const detail::FirstSeenTable<std::string> texts;
  std::set<std::uint32_t> hashes;
  for (std::uint64_t i = 0; i < 20'000; ++i) {
    const std::string chosen = collidingText(i);
    ASSERT_EQ(std::hash<std::string>{}(chosen), std::hash<std::string>{}(collidingText(0)));
    hashes.insert(texts.hashOf(chosen));
  }
  EXPECT_GT(hashes.size(), 19'900U);
}

// Catches faults of growing and of the bits: each width and cardinality against the plain way.
TEST(UniqueTests, AgreesWithAHashSet) {
  std::mt19937_64 random(5);
  for (const std::uint64_t distinct : {1ULL, 5ULL, 1'000ULL, 300'000ULL, 1ULL << 40, ~0ULL}) {
    std::vector<std::int64_t> numbers(20'000);
    std::vector<std::int8_t> bytes;
    std::vector<std::string> texts;
    for (auto& number : numbers) {
      number = static_cast<std::int64_t>(random() % distinct) - 77;
      bytes.push_back(static_cast<std::int8_t>(number));
      texts.push_back(std::to_string(number));
    }
    EXPECT_EQ(unique(numbers), plainUnique(numbers)) << distinct;
    EXPECT_EQ(unique(bytes), plainUnique(bytes)) << distinct;
    EXPECT_EQ(unique(texts), plainUnique(texts)) << distinct;
  }
}

struct Descent {
  std::string resort;
  int metres;
  bool operator==(const Descent&) const = default;
};

// Catches a lost order within a group, and a key that is missing but answers.
TEST(ChunkedTests, GroupsByFunctionAndByMember) {
  const std::vector<Descent> descents{{"A", 1}, {"B", 2}, {"A", 3}, {"C", 4}, {"B", 5}};
  const auto byResort = chunked(descents, &Descent::resort);
  EXPECT_EQ(byResort.size(), 3U);
  EXPECT_THAT(byResort["A"], ElementsAre(Descent{"A", 1}, Descent{"A", 3}));
  EXPECT_THAT(byResort["C"], ElementsAre(Descent{"C", 4}));
  EXPECT_THAT(byResort["D"], IsEmpty());
  EXPECT_FALSE(byResort.contains("D"));

  const auto byParity =
      chunked(descents, [](const Descent& descent) { return descent.metres % 2 == 0; });
  EXPECT_THAT(byParity[true], ElementsAre(Descent{"B", 2}, Descent{"C", 4}));
  std::string visited;
  for (const auto& [even, group] : byParity)
    visited += (even ? 'e' : 'o') + std::to_string(group.size());
  EXPECT_EQ(visited, "o3e2");
  EXPECT_TRUE(chunked(std::vector<int>{}, std::identity{}).empty());
}

// Catches a key function called twice, and elements that are copied out of a passing stream
// wrongly.
TEST(ChunkedTests, AsksOnceForEachKey) {
  std::istringstream once("1 2 3 4 5 6");
  int calls = 0;
  const auto groups = chunked(std::ranges::istream_view<int>(once), [&](int value) {
    ++calls;
    return value % 3;
  });
  EXPECT_EQ(calls, 6);
  EXPECT_THAT(groups[0], ElementsAre(3, 6));
  EXPECT_THAT(groups[1], ElementsAre(1, 4));
}

// Catches an equality that looks at the order of keys, or forgets the order of elements.
TEST(ChunkedTests, EqualityIsADictionarys) {
  const auto parity = [](int value) { return value % 2; };
  EXPECT_EQ(chunked(std::vector{1, 2, 3}, parity), chunked(std::vector{2, 1, 3}, parity));
  EXPECT_FALSE(chunked(std::vector{1, 2, 3}, parity) == chunked(std::vector{3, 2, 1}, parity));
  EXPECT_FALSE(chunked(std::vector{1, 3}, parity) == chunked(std::vector{1, 3, 2}, parity));
}

// Catches faults of growing and scattering, for elements that are copied as bytes and others.
TEST(ChunkedTests, AgreesWithAMapOfArrays) {
  std::mt19937_64 random(6);
  for (const std::uint64_t distinct : {1ULL, 7ULL, 5'000ULL, ~0ULL}) {
    std::vector<std::uint64_t> numbers(20'000);
    std::vector<std::string> texts;
    for (auto& number : numbers) texts.push_back(std::to_string(number = random()));
    std::unordered_map<std::uint64_t, std::vector<std::uint64_t>> expected;
    for (const auto number : numbers) expected[number % distinct].push_back(number);
    const auto groups = chunked(numbers, [&](std::uint64_t number) { return number % distinct; });
    const auto textGroups =
        chunked(texts, [&](const std::string& text) { return std::stoull(text) % distinct; });
    ASSERT_EQ(groups.size(), expected.size());
    for (const auto& [key, elements] : groups) {
      ASSERT_TRUE(std::ranges::equal(elements, expected[key]));
      ASSERT_TRUE(std::ranges::equal(textGroups[key], expected[key], {},
                                     [](const auto& text) { return std::stoull(text); }));
    }
  }
}

}  // namespace
}  // namespace ombrix

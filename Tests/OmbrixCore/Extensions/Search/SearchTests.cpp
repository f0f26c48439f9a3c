#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <list>
#include <random>
#include <vector>

#include "OmbrixCore/Extensions/Search/Date+Comparison.hpp"
#include "OmbrixCore/Extensions/Search/Math.hpp"
#include "OmbrixCore/Extensions/Search/SortedArraySearch.hpp"
#include "OmbrixCore/Extensions/Search/Statistics.hpp"

namespace ombrix {
namespace {

constexpr auto kLeft = SortedArraySearchDirection::left;
constexpr auto kRight = SortedArraySearchDirection::right;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

// Catches off-by-one steps, a test of the start itself, and results outside the array.
TEST(SortedArraySearchTests, WalksAwayFromTheStart) {
  const std::vector<int> five{1, 2, 3, 4, 5};
  const auto above3 = [](int value) { return value > 3; };
  const auto below3 = [](int value) { return value < 3; };
  const auto never = [](int) { return false; };
  const auto always = [](int) { return true; };
  const auto search = [&](auto predicate, std::ptrdiff_t start, auto direction) {
    return findClosestMatchInSortedArray(five, predicate, start, direction);
  };
  EXPECT_EQ(search(above3, 0, kRight), 2);
  EXPECT_EQ(search(above3, 3, kRight), 3) << "the next one matches";
  EXPECT_EQ(search(never, 1, kRight), 4);
  EXPECT_EQ(search(never, 4, kRight), 4);
  EXPECT_EQ(search(never, -1, kRight), 4);
  EXPECT_EQ(search(always, -1, kRight), -1) << "one before the first is outside";
  EXPECT_EQ(search(below3, 4, kLeft), 2);
  EXPECT_EQ(search(below3, 2, kLeft), 2) << "the one before matches";
  EXPECT_EQ(search(never, 3, kLeft), 0);
  EXPECT_EQ(search(always, 0, kLeft), 0);
  EXPECT_EQ(search(always, 5, kLeft), 5) << "the count is outside";
  EXPECT_EQ(search(never, 5, kLeft), 0);
  EXPECT_EQ(search([](int value) { return value == 2 || value == 4; }, 0, kRight), 0)
      << "the nearest match counts, not the last";
  EXPECT_EQ(findClosestMatchInSortedArray(std::array<int, 0>{}, never, 0, kLeft), 0);
  EXPECT_EQ(findClosestMatchInSortedArray(std::array<int, 0>{}, never, -1, kRight), -1);
}

// Catches reads outside the array that pass for results.
TEST(SortedArraySearchDeathTests, StartsOutsideTheArray) {
  const std::vector<int> two{1, 2};
  const auto never = [](int) { return false; };
  for (const auto start : {std::numeric_limits<std::ptrdiff_t>::min(), std::ptrdiff_t{-2},
                           std::ptrdiff_t{2}, std::numeric_limits<std::ptrdiff_t>::max()}) {
    EXPECT_DEATH(findClosestMatchInSortedArray(two, never, start, kRight), "outside the array");
  }
  EXPECT_DEATH(findClosestMatchInSortedArray(two, never, -1, kLeft), "outside the array");
  EXPECT_DEATH(findClosestMatchInSortedArray(two, never, 3, kLeft), "outside the array");
}

// Catches sums in another order or another type, and a mean that divides whole numbers.
TEST(StatisticsTests, TotalsAndAverages) {
  EXPECT_EQ(total(std::vector<int>{}), 0);
  EXPECT_EQ(total(std::list<std::int64_t>{kMax, -1, kMin}), -2);
  EXPECT_EQ(total(std::vector{1e16, 1.0, -1e16}), 0.0) << "from left to right";
  EXPECT_EQ(total(std::vector{0.1f, 0.2f, 0.3f}), 0.1f + 0.2f + 0.3f);
  EXPECT_EQ(average(std::vector<int>{}), 0.0);
  EXPECT_EQ(average(std::vector{1, 2}), 1.5);
  EXPECT_EQ(average(std::vector<std::uint8_t>{100, 101}), 100.5);
  EXPECT_EQ(average(std::vector<double>{}), 0.0);
  EXPECT_EQ(average(std::vector{1.0f, 2.0f, 4.0f}), 7.0f / 3.0f);
}

// Catches a sum that wraps, also where only a part of it leaves the type.
TEST(StatisticsDeathTests, Overflows) {
  EXPECT_DEATH((void)total(std::vector<std::uint8_t>{200, 56}), "overflows");
  EXPECT_DEATH((void)total(std::vector<std::int64_t>{kMax, 1, -1}), "overflows");
  EXPECT_DEATH((void)average(std::vector<std::uint64_t>{std::uint64_t{1} << 63}), "overflows");
  EXPECT_DEATH((void)median(std::vector{kMax, kMax}), "overflows");
  EXPECT_DEATH((void)median(std::vector<std::int64_t>{}), "median of no values");
}

// Catches ranks that are off by one, ranks on both sides of a bucket's edge, and widths that leave
// 63 bits; every shape stands against a sorted copy.
TEST(StatisticsTests, MedianAgreesWithSorting) {
  EXPECT_EQ(median(std::vector<std::int64_t>{3, 1, 2}), 2.0);
  EXPECT_EQ(median(std::vector<std::int64_t>{4, 1, 3, 2}), 2.5);
  EXPECT_EQ(median(std::list<std::int64_t>{kMin, kMax}), -0.5);

  std::mt19937_64 random(3);
  const auto draw = [&](auto&& shape) {
    for (const std::size_t count : {1UZ, 2UZ, 2'047UZ, 2'048UZ, 5'001UZ, 20'000UZ}) {
      std::vector<std::int64_t> values(count);
      for (auto& value : values) value = shape();
      auto sorted = values;
      std::ranges::sort(sorted);
      const double expected =
          count % 2 == 1 ? static_cast<double>(sorted[count / 2])
                         : static_cast<double>(sorted[count / 2 - 1] + sorted[count / 2]) * 0.5;
      EXPECT_EQ(median(values), expected) << count;
    }
  };
  draw([&] { return static_cast<std::int64_t>(random() >> 2); });
  draw([&] { return static_cast<std::int64_t>(random()) / 2; });
  draw([&] { return static_cast<std::int64_t>(random() % 7) - 3; });
  draw([&] { return random() % 2 == 0 ? kMin / 2 : kMax / 2; });
  draw([&] { return random() % 1'000 == 0 ? kMax / 2 : static_cast<std::int64_t>(random() % 99); });
  draw([&, next = std::int64_t{0}]() mutable { return next += 3; });
  draw([] { return std::int64_t{-42}; });
}

// Catches "or equal" on the wrong side, and not-a-number dates that compare as later or earlier.
TEST(DateComparisonTests, FourQuestions) {
  const double kNaN = std::numeric_limits<double>::quiet_NaN();
  const struct {
    double a, b;
    bool later, earlier;
  } cases[] = {
      {1, 2, false, true}, {2, 1, true, false}, {1, 1, false, false}, {kNaN, 1, false, false}};
  for (const auto& [a, b, later, earlier] : cases) {
    const auto date = platform::dateSince1970(a);
    const auto other = platform::dateSince1970(b);
    EXPECT_EQ(isLaterThan(date, other), later);
    EXPECT_EQ(isEarlierThan(date, other), earlier);
    EXPECT_EQ(isLaterThanOrEqualTo(date, other), !earlier);
    EXPECT_EQ(isEarlierThanOrEqualTo(date, other), !later);
  }
}

// Catches a rate per minute, a clamp, and another pound.
TEST(MathTests, Calories) {
  EXPECT_NEAR(Math::caloriesBurnedForUserWithWeight(70, 3'600), 485.219743, 1e-6);
  EXPECT_NEAR(Math::caloriesBurnedForUserWithWeight(70, 1'800), 485.219743 / 2, 1e-6);
  EXPECT_EQ(Math::caloriesBurnedForUserWithWeight(0, 7'200), -41.178 * 2);
}

}  // namespace
}  // namespace ombrix

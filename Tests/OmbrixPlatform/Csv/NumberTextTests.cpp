#include "OmbrixPlatform/Csv/NumberText.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "Tests/Support/Items.hpp"

// Random numbers, read and written, are held against the C library by Faults.track-numbers.

namespace ombrix::platform {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::uint64_t bits(double number) { return std::bit_cast<std::uint64_t>(number); }

// Catches forms that are wrongly taken or refused, and wrong answers beyond a double's range.
TEST(NumberTextTests, ReadsWholeTextsOnly) {
  const struct {
    std::string_view text;
    double number;
  } taken[] = {
      {"0", 0},
      {"-0", -0.0},
      {"+1.5", 1.5},
      {"007", 7},
      {".5", 0.5},
      {"5.", 5},
      {"1e3", 1000},
      {"-1.25E-2", -0.0125},
      {"1e+2", 100},
      {"inf", kInfinity},
      {"-INF", -kInfinity},
      {"+Infinity", kInfinity},
      {"1e400", kInfinity},
      {"-1e99999999999999999999", -kInfinity},
      {"1e-400", 0},
      {"0.000001e-9999999999999999999", 0},
      {"0e99999", 0},
      {"-0.0000e5", -0.0},
      {"1700000000.1234569", 1700000000.1234569},
      {"4.9e-324", 4.9e-324},
      {"1.7976931348623157e308", 1.7976931348623157e308},
      {"9007199254740993", 9007199254740992.0},
      {"9007199254740993.00000000000000000000000000000001", 9007199254740994.0},
  };
  for (const auto& [text, number] : taken) {
    const auto read = doubleFromText(text);
    ASSERT_TRUE(read) << text;
    EXPECT_EQ(bits(*read), bits(number)) << text;
  }
  EXPECT_TRUE(std::isnan(doubleFromText("NaN").value()));
  constexpr std::string_view kRefused =
      "| 1|1 |+|-|.|e5|1e|1e+|--1|+-1|1.2.3|1,5|0x10|infi|nan(1)|1_0|\t1|١";
  for (const auto& text : testing::itemsOf(kRefused, '|'))
    EXPECT_FALSE(doubleFromText(text)) << text;
  EXPECT_FALSE(doubleFromText(std::string_view("1\0", 2)));
}

// Catches rounding where cutting is asked for, cutting of the stored binary value where the
// written decimal is meant, lost signs and lost leading zeros.
TEST(NumberTextTests, CutsNumbersAsTheyAreWritten) {
  const struct {
    double number;
    int digits;
    std::string_view text;
  } cases[] = {
      {1700000000.1234569, 6, "1700000000.123456"},
      {1700000000.123, 6, "1700000000.123000"},
      {46.123456, 6, "46.123456"},
      {0.1 + 0.2, 6, "0.300000"},
      {-1, 6, "-1.000000"},
      {5.99, 1, "5.9"},
      {10.99, 1, "10.9"},
      {-0.0, 6, "-0.000000"},
      {-1e-300, 1, "-0.0"},
      {0.5, 6, "0.500000"},
      {999'999'999.999'999, 6, "999999999.999999"},
      {9'999'999'999.999'998, 6, "9999999999.999998"},
      {99'999'999'999'999.98, 1, "99999999999999.9"},
      {1e23, 1, "100000000000000000000000.0"},
      {std::nextafter(1e23, 2e23), 1, "100000000000000008388608.0"},
      {2251799813685248.5, 6, "2251799813685248.500000"},
      {7, 0, "7"},
  };
  for (const auto& [number, digits, text] : cases) {
    EXPECT_EQ(TruncatingNumberFormat(digits).string(number), text);
  }
  for (const double number : {kInfinity, -kInfinity, std::nan("")}) {
    EXPECT_FALSE(TruncatingNumberFormat(6).string(number));
  }
  const auto largest = TruncatingNumberFormat(9).string(-std::numeric_limits<double>::max());
  EXPECT_EQ(largest.value().size(), 1U + 309 + 1 + 9);
}

}  // namespace
}  // namespace ombrix::platform

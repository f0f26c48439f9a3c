#include "OmbrixPlatform/Csv/NumberText.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

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
  const std::string_view refused[] = {"",
                                      " 1",
                                      "1 ",
                                      "+",
                                      "-",
                                      ".",
                                      "e5",
                                      "1e",
                                      "1e+",
                                      "--1",
                                      "+-1",
                                      "1.2.3",
                                      "1,5",
                                      "0x10",
                                      "infi",
                                      "nan(1)",
                                      "1_0",
                                      "\t1",
                                      std::string_view("1\0", 2),
                                      "١"};
  for (const auto text : refused) EXPECT_FALSE(doubleFromText(text)) << text;
}

// Catches a last bit that differs from the correctly rounded one, on every way through the code:
// few digits, up to 19, more than 19, and decimals halfway between two doubles.
TEST(NumberTextTests, ReadsTheNearestDouble) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 100'000; ++i) {
    char text[128];
    char* end = text;
    const auto digits = [&](std::uint64_t count) {
      for (; count > 0; --count) *end++ = static_cast<char>('0' + random() % 10);
    };
    switch (i % 4) {
      case 0:
        end = std::to_chars(text, text + 64, std::bit_cast<double>(random() >> 1)).ptr;
        break;
      case 1:
        digits(1 + random() % 11);
        *end++ = '.';
        digits(1 + random() % 20);
        break;
      case 2:
        end = std::to_chars(text, text + 64, random() >> 10 | 1).ptr;
        *end++ = 'e';
        end = std::to_chars(end, text + 100, static_cast<int>(random() % 60) - 30).ptr;
        break;
      default: {
        const double number = std::ldexp(static_cast<double>(random() >> 11), -60);
        const double half = number / 2 + std::nextafter(number, kInfinity) / 2;
        end = std::to_chars(text, text + 100, half, std::chars_format::fixed).ptr;
      }
    }
    double expected = 0;
    if (std::from_chars(text, end, expected).ec != std::errc{}) continue;
    const auto read = doubleFromText({text, end});
    ASSERT_TRUE(read && bits(*read) == bits(expected)) << std::string_view(text, end);
  }
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

/// The same rule by slow and obvious means: the shortest decimal if it has at most 15 digits, else
/// every digit of the binary value; then cut.
std::string cutByRule(double number, int digits) {
  char text[1500];
  const char* const end = std::to_chars(text, text + 64, number, std::chars_format::scientific).ptr;
  const std::string_view shortest(text, end);
  const auto mantissa = shortest.substr(0, shortest.find('e'));
  const auto count = std::ranges::count_if(mantissa, [](char c) { return c >= '0' && c <= '9'; });
  // With at most 15 digits, printf's rounding to 15 gives them back.
  const int places = 14 - static_cast<int>(std::floor(std::log10(std::abs(number))));
  if (count > 15 || places < 0 || places > 300) {
    std::snprintf(text, sizeof text, "%.1074f", number);
  } else {
    std::snprintf(text, sizeof text, "%.*f", places, number);
  }
  std::string full(text);
  if (full.find('.') == full.npos) full += '.';
  full += "000000000";
  return full.substr(0, full.find('.') + 1 + static_cast<std::size_t>(digits));
}

// Catches a number that is one unit off in the integer arithmetic: around whole units, at the
// bounds of 15 digits, for times with micro- and milliseconds.
TEST(NumberTextTests, CutsByTheRule) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 20'000; ++i) {
    const auto steps = static_cast<int>(random() % 5) - 2;
    double number = 0;
    switch (i % 4) {
      case 0:
        number = static_cast<double>(random() % 360'000'000) / 1e6;
        break;
      case 1:
        number = 1.3e9 + static_cast<double>(random() % 500'000'000'000) / 1e3;
        break;
      case 2:
        number = 1e9 + static_cast<double>(random() % 8'000'000'000'000'000) / 1e6;
        break;
      default:
        number = static_cast<double>(random() % 1'000'000'000'000'000) /
                 std::pow(10, static_cast<double>(random() % 12));
    }
    for (int step = 0; step < std::abs(steps); ++step) {
      number = std::nextafter(number, steps < 0 ? -kInfinity : kInfinity);
    }
    if (number < 1e-6) continue;
    for (const int digits : {1, 6}) {
      ASSERT_EQ(TruncatingNumberFormat(digits).string(number), cutByRule(number, digits)) << number;
    }
  }
}

}  // namespace
}  // namespace ombrix::platform

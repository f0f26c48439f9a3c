#include <gtest/gtest.h>

#include <string>

#include "OmbrixCore/Extensions/Logging/OmbrixLogFormatter.hpp"
#include "OmbrixCore/Extensions/Logging/OmbrixOSLogFormatter.hpp"

namespace ombrix {
namespace {

using platform::DDLogFlag;

std::string lineOf(const platform::DDLogFormatter& formatter, DDLogFlag flag,
                   std::string_view function) {
  std::string line;
  formatter.format({.message = "Data: bad row",
                    .flag = flag,
                    .fileName = "HRCSVParser",
                    .function = function,
                    .line = 42,
                    .timestamp = platform::dateSince1970(1'714'559'430.007)},
                   line);
  return line;
}

// Catches a wrong mark, a mark without its variation selector, and a mask that is taken apart.
TEST(LogFormatterTests, EachFlagHasItsMark) {
  const struct {
    std::uint32_t flag;
    const char* mark;
  } cases[] = {
      {1, "\xF0\x9F\x9A\xA8"},         {2, "\xE2\x9A\xA0\xEF\xB8\x8F"}, {3, "\xF0\x9F\x94\x8D"},
      {4, "\xE2\x84\xB9\xEF\xB8\x8F"}, {8, "\xF0\x9F\x94\x8D"},         {16, "\xF0\x9F\x94\x8D"},
      {5, "\xF0\x9F\x94\x8D"},         {0, "\xF0\x9F\x94\x8D"},
  };
  for (const auto& [flag, mark] : cases) {
    EXPECT_EQ(lineOf(OmbrixLogFormatter(), DDLogFlag{flag}, "parse(url:)"),
              std::string("05/01/2024 10:30:30:007 ") + mark +
                  "   Data: bad row | [HRCSVParser parse(url:)]:42");
  }
}

// Catches a blank or a point that goes away with the function name, and a time in the system's log.
TEST(LogFormatterTests, AMissingFunctionLeavesItsPlaceEmpty) {
  EXPECT_TRUE(lineOf(OmbrixLogFormatter(), DDLogFlag::error, {}).ends_with("| [HRCSVParser ]:42"));
  const OmbrixOSLogFormatter system;
  EXPECT_EQ(lineOf(system, DDLogFlag::error, {}), "Data: bad row | HRCSVParser. + 42");
  EXPECT_EQ(lineOf(system, DDLogFlag::info, "f()"), "Data: bad row | HRCSVParser.f() + 42");
}

}  // namespace
}  // namespace ombrix

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "OmbrixCore/Extensions/Logging/OmbrixLogFormatter.hpp"
#include "OmbrixCore/Extensions/Logging/OmbrixOSLogFormatter.hpp"

namespace ombrix {
namespace {

using platform::DDLogFlag;
using platform::DDLogMessage;

constexpr platform::Date kDate = platform::dateSince1970(1'714'559'430.007);

DDLogMessage messageWith(DDLogFlag flag, std::string_view function = "parse(url:)") {
  return {.message = "Data: bad row",
          .flag = flag,
          .file = "OmbrixCore/Data/LocationCSVParser",
          .fileName = "LocationCSVParser",
          .function = function,
          .line = 42,
          .timestamp = kDate};
}

std::string lineOf(const platform::DDLogFormatter& formatter, const DDLogMessage& message) {
  std::string line;
  formatter.format(message, line);
  return line;
}

// Catches a wrong mark, a mark without its variation selector, and a mask that is taken apart.
TEST(LogFormatterTests, EachFlagHasItsMark) {
  const struct {
    DDLogFlag flag;
    const char* mark;
  } cases[] = {
      {DDLogFlag::error, "\xF0\x9F\x9A\xA8"}, {DDLogFlag::warning, "\xE2\x9A\xA0\xEF\xB8\x8F"},
      {DDLogFlag{3}, "\xF0\x9F\x94\x8D"},     {DDLogFlag::info, "\xE2\x84\xB9\xEF\xB8\x8F"},
      {DDLogFlag::debug, "\xF0\x9F\x94\x8D"}, {DDLogFlag::verbose, "\xF0\x9F\x94\x8D"},
      {DDLogFlag{7}, "\xF0\x9F\x94\x8D"},     {DDLogFlag{0}, "\xF0\x9F\x94\x8D"},
  };
  for (const auto& [flag, mark] : cases) {
    EXPECT_EQ(lineOf(OmbrixLogFormatter(), messageWith(flag)),
              std::string("05/01/2024 10:30:30:007 ") + mark +
                  "   Data: bad row | [LocationCSVParser parse(url:)]:42");
  }
}

// Catches a blank or a point that goes away with the function name.
TEST(LogFormatterTests, AMissingFunctionLeavesItsPlaceEmpty) {
  const auto message = messageWith(DDLogFlag::error, {});
  EXPECT_TRUE(lineOf(OmbrixLogFormatter(), message).ends_with("| [LocationCSVParser ]:42"));
  EXPECT_EQ(lineOf(OmbrixOSLogFormatter(), message), "Data: bad row | LocationCSVParser. + 42");
}

// Catches a time, a mark or another order in the system's log.
TEST(LogFormatterTests, TheSystemsLogGetsNoTime) {
  EXPECT_EQ(lineOf(OmbrixOSLogFormatter(), messageWith(DDLogFlag::error)),
            "Data: bad row | LocationCSVParser.parse(url:) + 42");
}

// Catches the date text of one thread's second ending up in another's line.
TEST(LogFormatterTests, ManyThreadsFormatAtOnce) {
  const OmbrixLogFormatter formatter;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&formatter, i] {
      auto message = messageWith(DDLogFlag::info);
      for (int second = 0; second < 30; ++second) {
        message.timestamp = kDate + std::chrono::minutes{i} + std::chrono::seconds{second};
        const auto digits = std::to_string(30 + second);
        EXPECT_EQ(lineOf(formatter, message).substr(0, 23),
                  "05/01/2024 10:3" + std::to_string(i) + ":" + digits + ":007");
      }
    });
  }
}

}  // namespace
}  // namespace ombrix

#include "OmbrixPlatform/Text/DateFormatter.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <vector>

namespace ombrix::platform {
namespace {

constexpr const char* kLogFormat = "MM/dd/yyyy HH:mm:ss:SSS";

// Catches a fraction that is rounded up into the next second or cut one step low, and seconds
// before 1970 that are counted the wrong way round.
TEST(DateFormatterTests, StampsToTheMillisecond) {
  const DateFormatter formatter(kLogFormat, Locale("en_US"), "UTC");
  struct Case {
    double seconds;
    const char* text;
  };
  constexpr Case kCases[] = {
      {1700000000, "11/14/2023 22:13:20:000"},
      {1700000000.123, "11/14/2023 22:13:20:123"},
      {1700000000.9999, "11/14/2023 22:13:20:999"},
      {1700000001.001, "11/14/2023 22:13:21:001"},
      {0, "01/01/1970 00:00:00:000"},
      {-0.25, "12/31/1969 23:59:59:750"},
      {-1, "12/31/1969 23:59:59:000"},
  };
  for (const auto& [seconds, text] : kCases) {
    EXPECT_EQ(formatter.stringFrom(dateSince1970(seconds)), text) << seconds;
  }
  for (int i = 0; i < 1000; ++i) {
    const auto text = formatter.stringFrom(dateSince1970(1700000000 + i / 1000.0));
    EXPECT_EQ(std::stoi(text.substr(text.size() - 3)), i);
  }
  EXPECT_EQ(formatter.stringFrom(dateSince1970(std::numeric_limits<double>::quiet_NaN())), "");
  EXPECT_EQ(formatter.stringFrom(dateSince1970(-1e300)), "");
}

// Catches kept texts that differ from fresh ones: other digits, a fraction in the middle, several
// fractions, fields that change within the second, texts too long to keep, quoted letters.
TEST(DateFormatterTests, KeptTextEqualsFreshText) {
  for (const char* locale : {"en_US", "ar_EG", "fa_IR", "th_TH", "hi_IN_#u-nu-deva", "de_DE"}) {
    for (const char* pattern :
         {kLogFormat, "SSS ss", "ss.S", "ss.SSSSS", "SS:SSS", "A", "EEEE d. MMMM yyyy", "'S' ss",
          "ss.SSS 'a very long text that does not fit into what is kept for the last second, for "
          "it has more than a hundred bytes'"}) {
      const DateFormatter kept(pattern, Locale(locale), "UTC");
      for (const double seconds : {1700000000.5, 1700000000.75, 1700000001.007, 1700000000.5}) {
        const DateFormatter fresh(pattern, Locale(locale), "UTC");
        EXPECT_EQ(kept.stringFrom(dateSince1970(seconds)), fresh.stringFrom(dateSince1970(seconds)))
            << locale << " " << pattern;
      }
    }
  }
  EXPECT_EQ(DateFormatter("HH:mm:ss:SSS", Locale("ar_EG"), "UTC").stringFrom(dateSince1970(1.25)),
            "٠٠:٠٠:٠١:٢٥٠");
}

// Catches a second kept by one formatter that another one writes.
TEST(DateFormatterTests, FormattersDoNotMixTheirTexts) {
  const DateFormatter utc("HH:mm", Locale("en_US"), "UTC");
  const DateFormatter zurich("HH:mm", Locale("en_US"), "Europe/Zurich");
  const Date date = dateSince1970(1700000000);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(utc.stringFrom(date), "22:13");
    EXPECT_EQ(zurich.stringFrom(date), "23:13");
  }
  EXPECT_EQ(DateFormatter("HH:mm").stringFrom(date), "22:13");
  EXPECT_EQ(DateFormatter("HH:mm", Locale("en_US"), "No/Where").stringFrom(date), "22:13");
}

// Catches lenient reading: text behind the date, days that are not in the calendar.
TEST(DateFormatterTests, ReadsWhatItWrites) {
  const DateFormatter formatter("yyyy-MM-dd'T'HH:mm:ss.SSSZZZZZ", Locale("en_US"), "Europe/Zurich");
  const Date date = dateSince1970(1700000000.25);
  EXPECT_EQ(formatter.stringFrom(date), "2023-11-14T23:13:20.250+01:00");
  EXPECT_EQ(formatter.dateFrom("2023-11-14T23:13:20.250+01:00"), date);
  EXPECT_EQ(formatter.dateFrom("2023-11-14T22:13:20.250Z"), date);
  for (const char* text : {"", "2023-11-14", "2023-02-30T00:00:00.000Z", "x",
                           "2023-11-14T22:13:20.250Z ", "2023-11-14T22:13:20.250\xff"}) {
    EXPECT_EQ(formatter.dateFrom(text), std::nullopt) << text;
  }
}

// Catches numbers so long that reading them would divide by zero or wrap around.
TEST(DateFormatterTests, RefusesNumbersWithoutEnd) {
  const DateFormatter formatter("ss.SSS", Locale("en_US"), "UTC");
  EXPECT_EQ(formatter.dateFrom("01.123456789"), dateSince1970(1.123));
  for (const std::size_t digits : {13U, 40U, 100U, 100'000U}) {
    EXPECT_EQ(formatter.dateFrom("01." + std::string(digits, '7')), std::nullopt) << digits;
  }
  const DateFormatter packed("yyyyMMddHHmmssSSS", Locale("en_US"), "UTC");
  EXPECT_EQ(packed.dateFrom("20231114221320250"), dateSince1970(1700000000.25));
}

// Catches shared state between threads (under the thread sanitizer).
TEST(DateFormatterTests, OneFormatterServesManyThreads) {
  const DateFormatter formatter(kLogFormat, Locale("en_US"), "UTC");
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&formatter, thread] {
      for (int i = 0; i < 200; ++i) {
        const double seconds = 1700000000 + thread + i / 100.0;
        const auto text = formatter.stringFrom(dateSince1970(seconds));
        EXPECT_EQ(formatter.dateFrom(text), dateSince1970(seconds));
      }
    });
  }
}

}  // namespace
}  // namespace ombrix::platform

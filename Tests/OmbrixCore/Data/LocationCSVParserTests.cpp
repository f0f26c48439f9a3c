#include "OmbrixCore/Data/LocationCSVParser.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <filesystem>
#include <future>
#include <random>
#include <thread>

#include "OmbrixCore/Data/HRCSVParser.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

using namespace std::string_view_literals;
using platform::URL;
using ::testing::ElementsAre;
using testing::RecordingLog;
using testing::ScopedDir;

// A text that names a file, or is a track: who writes it says which.
template <class Parser, class Text>
concept TakesText = requires(const Parser& parser, Text text) { parser.parse(text); } ||
                    requires(const Parser& parser, Text text, Parser::Completion completion) {
                      parser.parse(text, std::move(completion));
                    };
static_assert(!TakesText<LocationCSVParser, const char*> && !TakesText<HRCSVParser, const char*>);
static_assert(!TakesText<LocationCSVParser, std::string> && !TakesText<HRCSVParser, std::string>);
static_assert(TakesText<LocationCSVParser, std::string_view>);

constexpr std::string_view kShortRow = "Data: Location row didn't have complete data";
constexpr std::string_view kBadRow = "Data: Error while trying to read CSV for migration, bad row";
constexpr std::string_view kNoStream = "Filesystem: Couldn't read input stream for CSV";
constexpr std::string_view kNoReader = "Data: Error parsing CSV";

/// Compares every field to the last bit, which the fixes' own equality does not.
bool identical(const std::vector<CLLocation>& a, const std::vector<CLLocation>& b) {
  using Bits = std::array<std::uint64_t, sizeof(CLLocation) / 8>;
  return std::ranges::equal(a, b, [](const CLLocation& x, const CLLocation& y) {
    return std::bit_cast<Bits>(x) == std::bit_cast<Bits>(y);
  });
}

// Catches columns that are exchanged, and invented accuracies.
TEST(LocationCSVParserTests, ReadsEachColumnIntoItsProperty) {
  const auto fixes = LocationCSVParser().parse("1700000000.5,46.5,7.25,1500,90,5,3,4"sv);
  ASSERT_EQ(fixes.value().size(), 1U);
  const CLLocation& fix = fixes->front();
  EXPECT_EQ(platform::timeIntervalSince1970(fix.timestamp), 1700000000.5);
  EXPECT_EQ(fix.coordinate.latitude, 46.5);
  EXPECT_EQ(fix.coordinate.longitude, 7.25);
  EXPECT_EQ(fix.altitude, 1500);
  EXPECT_EQ(fix.course, 90);
  EXPECT_EQ(fix.speed, 5);
  EXPECT_EQ(fix.verticalAccuracy, 3);
  EXPECT_EQ(fix.horizontalAccuracy, 4);
  EXPECT_EQ(fix.courseAccuracy, -1);
  EXPECT_EQ(fix.speedAccuracy, -1);
}

// Catches bad rows that end the reading or are not logged, and good ones that are taken for bad.
TEST(LocationCSVParserTests, SkipsBadRowsWithALogLine) {
  const struct {
    std::string_view text;
    std::size_t fixes;
    std::vector<std::string> errors;
  } cases[] = {
      {"", 0, {}},
      {"\n\n", 0, {}},
      {"1,2,3,4,5,6,7\n", 0, {std::string(kShortRow)}},
      {"1,2,3,4,5,6,7,8,x,\n", 1, {}},
      {"1, 2,3,4,5,6,7,8\n1,2,3,4,5,6,7,8", 1, {std::string(kBadRow)}},
      {"x,2,3,4,5,6,7,8\n1,2,3,4,5,6,7,\n1,2\n\"1\",2,3,4,5,6,7,1e1\r\n",
       1,
       {std::string(kBadRow), std::string(kBadRow), std::string(kShortRow)}},
      {"nan,inf,-inf,0,0,0,0,0\n", 1, {}},
      {"1,2,\"3,4,5,6,7,8\n1,2,3,4,5,6,7,8\n1,2,3,4,5,6,7,8\n", 2, {std::string(kBadRow)}},
      {"1,2,3,4,5,6,7,8,\"\n1,2,3,4,5,6,7,8\n", 2, {}},
  };
  for (const auto& [text, count, errors] : cases) {
    RecordingLog log;
    const auto fixes = LocationCSVParser().parse(text);
    EXPECT_EQ(fixes.value().size(), count) << text;
    EXPECT_EQ(log.takeErrors(), errors) << text;
    for (const auto& line : log.lines()) {
      EXPECT_EQ(line.file, "OmbrixCore/Data/LocationCSVParser");
      EXPECT_EQ(line.function, "parseTransform(_:)");
    }
  }
}

std::string syntheticTrack(std::size_t rows, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string text;
  for (std::size_t i = 0; i < rows; ++i) {
    text += std::to_string(1'700'000'000 + i) + "." + std::to_string(100 + random() % 900) + "000,";
    text += std::to_string(46.5 + static_cast<double>(random() % 1000) / 1e6) + ",";
    text += std::to_string(-9.8 - static_cast<double>(random() % 1000) / 1e6) + ",";
    text += std::to_string(static_cast<double>(random() % 3000)) + ",-1.0,0.500000,8.0,5.0\n";
  }
  return text;
}

bool identical(const std::vector<platform::HKQuantitySample>& a,
               const std::vector<platform::HKQuantitySample>& b) {
  return a == b;
}

// Catches a source form that reads otherwise than the rest, or answers on the wrong thread, in
// either parser.
template <class Parser>
void readsTheSameFromEverySource(const std::string& text, std::size_t rows) {
  using Items = decltype(std::declval<Parser>().parse(std::declval<const URL&>()));
  const ScopedDir folder;
  const URL url = URL::fileURL(folder.write("track.csv", text).string());
  const Parser parser;
  const auto expected = parser.parse(std::string_view(text)).value();
  ASSERT_EQ(expected.size(), rows);
  EXPECT_TRUE(identical(parser.parse(url).value(), expected));
  EXPECT_TRUE(identical(parser.parse(folder.path() / "track.csv").value(), expected));
  EXPECT_TRUE(identical(parser.parse(*platform::InputStream::withURL(url)).value(), expected));
  EXPECT_TRUE(identical(parser.parse(platform::bytesOf(text)).value(), expected));

  const auto wait = [&](auto source) {
    std::promise<Items> answer;
    auto future = answer.get_future();
    const auto caller = std::this_thread::get_id();
    parser.parse(std::move(source), [&](Items items) {
      EXPECT_NE(std::this_thread::get_id(), caller);
      answer.set_value(std::move(items));
    });
    return identical(future.get().value(), expected);
  };
  EXPECT_TRUE(wait(url));
  EXPECT_TRUE(wait(std::string_view(text)));
  EXPECT_TRUE(wait(std::shared_ptr(platform::InputStream::withURL(url))));
  EXPECT_TRUE(wait(platform::dataFrom(text)));
  RecordingLog log;
  EXPECT_FALSE(parser.parse(URL::fileURL((folder.path() / "missing").string())));
  EXPECT_THAT(log.takeErrors(), ElementsAre(kNoStream));
  EXPECT_EQ(log.lines()[0].function, "parse(url:)");
}

TEST(CSVParserTests, BothReadTheSameFromEverySource) {
  readsTheSameFromEverySource<LocationCSVParser>(syntheticTrack(5000, 1), 5000);
  readsTheSameFromEverySource<HRCSVParser>("1,60\n2,61\n", 2);
}

// Catches a source that cannot be opened taken for an empty track, and the wrong line in the log.
TEST(LocationCSVParserTests, GivesNothingWithoutASource) {
  const ScopedDir folder;
  RecordingLog log;
  const LocationCSVParser parser;
  EXPECT_FALSE(parser.parse(URL::fileURL(folder.path().string(), true)));
  const auto stream = platform::InputStream::withPath(folder.path() / "missing.csv");
  EXPECT_FALSE(parser.parse(*stream));
  EXPECT_THAT(log.takeErrors(), ElementsAre(kNoStream, kNoReader));
  EXPECT_EQ(log.lines()[1].function, "parse(stream:)");

  // The line belongs to the file of the tag: another parser's failure has another one.
  EXPECT_FALSE(HRCSVParser().parse(*stream));
  EXPECT_THAT(log.takeErrors(), ElementsAre(kNoReader));
  EXPECT_NE(log.lines()[2].line, log.lines()[1].line);

  const auto track = folder.write("track.csv", "1,2,3,4,5,6,7,8\n1,2,3");
  EXPECT_FALSE(parser.parse(URL::parse("http://localhost" + track.string()).value()));
  EXPECT_THAT(log.takeErrors(), ElementsAre(kNoStream));
  EXPECT_EQ(parser.parse(URL::fileURL(track.string())).value().size(), 1U);
  EXPECT_THAT(log.takeErrors(), ElementsAre(kShortRow));
}

// Catches a list that is moved over and over, or reserved far beyond its rows, and reports that
// go back, never end or miscount.
TEST(LocationCSVParserTests, GrowsOnceAndReportsOnTheWay) {
  const ScopedDir folder;
  RecordingLog log;
  const auto file = folder.write("track.csv", syntheticTrack(50'000, 2) + "x\n");
  std::vector<CSVParseProgress> reports;
  const auto fixes = LocationCSVParser().parse(
      URL::fileURL(file.string()),
      CSVParseObserver([&](const CSVParseProgress& report) { reports.push_back(report); }));
  EXPECT_EQ(log.takeErrors().size(), 1U);
  EXPECT_LE(fixes.value().capacity(), 50'000 * 5 / 4);

  const auto size = std::filesystem::file_size(file);
  EXPECT_GE(reports.size(), size / CSVParseObserver::kReportBytes / 2);
  for (std::size_t i = 1; i < reports.size(); ++i) {
    EXPECT_LT(reports[i - 1].rowsRead, reports[i].rowsRead);
    EXPECT_FALSE(reports[i - 1].isFinished);
  }
  EXPECT_TRUE(reports.back().isFinished && !reports.back().brokeOff);
  EXPECT_EQ(reports.back().rowsRead, 50'000U);
  EXPECT_EQ(reports.back().rowsSkipped, 1U);
  EXPECT_EQ(reports.back().bytesRead, size);
  EXPECT_EQ(reports.back().bytesTotal, size);
}

}  // namespace
}  // namespace ombrix

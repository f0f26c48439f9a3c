#include "OmbrixPlatform/Csv/CSVReader.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <random>

#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::platform {
namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows remainingRows(CSVReader& reader) {
  Rows rows;
  while (const auto row = reader.next()) rows.emplace_back(row->begin(), row->end());
  return rows;
}

/// Gives its bytes in pieces of a fixed size, and fails after the last one when told to.
class PiecewiseStream final : public InputStream {
 public:
  PiecewiseStream(std::string text, std::size_t piece, bool fails = false)
      : text_(std::move(text)), piece_(piece), fails_(fails) {}
  FileResult<void> open() override {
    setStatus(StreamStatus::open);
    return {};
  }
  void close() noexcept override { setStatus(StreamStatus::closed); }
  FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    if (fails_ && place_ == text_.size()) return fail(FileError(EIO, "read"));
    const auto count = std::min({piece_, buffer.size(), text_.size() - place_});
    std::ranges::copy(bytesOf(text_).subspan(place_, count), buffer.begin());
    place_ += count;
    return count;
  }

 private:
  std::string text_;
  std::size_t piece_, place_ = 0;
  bool fails_;
};

// Catches rows and fields split in the wrong place, the same in memory and across block borders.
TEST(CSVReaderTests, SplitsRowsAndFields) {
  const struct {
    std::string_view text;
    Rows rows;
  } cases[] = {
      {"", {}},
      {"\n\r\n\r", {}},
      {"a,b", {{"a", "b"}}},
      {"a,b\nc\r\nd\re\n", {{"a", "b"}, {"c"}, {"d"}, {"e"}}},
      {"a\n\n\nb", {{"a"}, {"b"}}},
      {",\n,,", {{"", ""}, {"", "", ""}}},
      {" a , b ", {{" a ", " b "}}},
      {"\"a,b\",\"c\nd\"\ne", {{"a,b", "c\nd"}, {"e"}}},
      {"\"say \"\"hi\"\"\",\"\"\"\",\"\"", {{"say \"hi\"", "\"", ""}}},
      {"\"\"\n", {{""}}},
      {"a\"b,\"c\"d\"\n", {{"a\"b", "cd\""}}},
      {"a,\"open\nb,c", {{"a", "\"open"}, {"b", "c"}}},
      {"a,\"open\"\",b\n", {{"a", "\"open\"\"", "b"}}},
      {"\xEF\xBB\xBF"
       "a,\xEF\xBB\xBF"
       "b",
       {{"a",
         "\xEF\xBB\xBF"
         "b"}}},
      {{"a\0b,\xFF\n", 6}, {{std::string("a\0b", 3), "\xFF"}}},
  };
  for (const auto& [text, rows] : cases) {
    CSVReader inPlace(text);
    EXPECT_EQ(remainingRows(inPlace), rows) << text;
    EXPECT_EQ(inPlace.bytesRead(), text.size());
    for (const std::size_t piece : {1U, 2U, 3U}) {
      PiecewiseStream stream{std::string(text), piece};
      CSVReader reader(stream);
      EXPECT_EQ(remainingRows(reader), rows) << text << " in pieces of " << piece;
      EXPECT_EQ(reader.bytesRead(), text.size());
    }
  }
}

// Catches options that leak into each other: white space inside quotes trimmed, a delimiter
// trimmed away, a header row given twice.
TEST(CSVReaderTests, FollowsItsConfiguration) {
  CSVReader tabs("name\tplace\n a \t\" b \" \n\t c",
                 {.delimiter = '\t', .hasHeaderRow = true, .trimFields = true});
  EXPECT_THAT(tabs.headerRow(), ::testing::ElementsAre("name", "place"));
  EXPECT_EQ(remainingRows(tabs), (Rows{{"a", " b "}, {"", "c"}}));

  // A point that separates is no decimal point.
  CSVReader points("1.5\n", {.delimiter = '.'});
  double number = 0;
  EXPECT_FALSE(points.nextNumbers({&number, 1}));
  EXPECT_THROW(CSVReader("", {.delimiter = '"'}), CSVError);
}

// Catches a failing stream that ends in an endless loop, or in half a row taken for a whole one.
TEST(CSVReaderTests, TellsOfAStreamThatFails) {
  PiecewiseStream atOnce("", 1, true);
  EXPECT_THROW(CSVReader{atOnce}, CSVError);
  EXPECT_EQ(atOnce.streamStatus(), StreamStatus::closed);

  PiecewiseStream midway("1,2\n3,4\n5,6", 3, true);
  CSVReader reader(midway);
  double numbers[2];
  EXPECT_TRUE(reader.nextNumbers(numbers));
  EXPECT_EQ(remainingRows(reader), (Rows{{"3", "4"}}));
  EXPECT_EQ(reader.error().value().kind(), CSVError::Kind::cannotReadStream);

  PiecewiseStream stray("a,\"b\n1,2\n3,4\n5,6", 3, true);
  CSVReader behindQuote(stray);
  EXPECT_EQ(remainingRows(behindQuote), (Rows{{"a", "\"b"}, {"1", "2"}, {"3", "4"}}));
  EXPECT_TRUE(behindQuote.error());

  const auto open = InputStream::withView(bytesOf("1\n2\n"));
  ASSERT_TRUE(open->open());
  for (const std::size_t rows : {2U, 0U}) {
    CSVReader once(*open);
    EXPECT_EQ(remainingRows(once).size(), rows) << "an open stream is read once";
  }

  const auto missing = InputStream::withPath("/nonexistent/track.csv");
  EXPECT_THROW(CSVReader{*missing}, CSVError);
}

/// What all rows read as, number by number, "x" for what is none: by `next` alone when
/// `numbersFirst` is off.
std::string readAll(CSVReader& reader, std::size_t columns, bool numbersFirst) {
  std::string all;
  const auto add = [&all](double number) {
    all += std::to_string(std::bit_cast<std::uint64_t>(number)) + ' ';
  };
  std::vector<double> numbers(columns);
  while (true) {
    if (numbersFirst && reader.nextNumbers(numbers)) {
      for (const double number : numbers) add(number);
    } else {
      const auto row = reader.next();
      if (!row) return all;
      for (const auto field : *row) {
        const auto number = doubleFromText(field);
        number ? add(*number) : void(all += "x ");
      }
    }
    all += '\n';
  }
}

// Catches every difference between the ways to read a row of numbers: wide instructions, portable
// code, and splitting first; in memory, near its end, and across blocks.
TEST(CSVReaderTests, ReadsNumbersTheSameWayOnEveryPath) {
  std::mt19937_64 random(3);
  constexpr std::string_view kOddities = "0123456789.,-+\n\r\"e x\0";
  for (int round = 0; round < 3000; ++round) {
    const std::size_t columns = 1 + random() % 9;
    std::string text;
    for (auto rows = random() % 12; rows > 0; --rows) {
      for (std::size_t column = 0; column < columns; ++column) {
        if (random() % 3 == 0) text += '-';
        text += std::to_string(random() >> random() % 64).substr(0, 1 + random() % 19);
        if (random() % 8 != 0) text += '.' + std::to_string(random()).substr(0, 1 + random() % 17);
        text += column + 1 < columns ? "," : random() % 4 == 0 ? "\r\n" : "\n";
      }
    }
    for (auto changes = random() % 4; changes > 0 && !text.empty(); --changes) {
      text[random() % text.size()] = kOddities[random() % kOddities.size()];
    }
    CSVReader plain(text);
    const std::string expected = readAll(plain, columns, false);
    for (const bool wide : {false, true}) {
      const CSVReader::Configuration configuration{.usesWideInstructions = wide};
      CSVReader inPlace(text, configuration);
      ASSERT_EQ(readAll(inPlace, columns, true), expected) << text;
      PiecewiseStream stream(text, 1 + random() % 200);
      CSVReader streamed(stream, configuration);
      ASSERT_EQ(readAll(streamed, columns, true), expected) << text;
    }
  }
}

}  // namespace
}  // namespace ombrix::platform

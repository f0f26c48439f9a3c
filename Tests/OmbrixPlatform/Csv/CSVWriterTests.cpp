#include "OmbrixPlatform/Csv/CSVWriter.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "OmbrixPlatform/Csv/UTF8Tail.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/SmallDisk.hpp"

namespace ombrix::platform {
namespace {

using testing::SmallDisk;

// Catches quotes too many or too few, a line for a row that would be none, a field for a number
// without a text, and bytes that leave before they are asked for.
TEST(CSVWriterTests, QuotesOnlyWhereNeeded) {
  const auto stream = std::make_shared<SmallDisk>(1000);
  CSVWriter writer(stream, {.delimiter = ';', .newline = "\r\n"});
  writer.write(std::vector<std::string_view>{"a", "b,c", "d;e", "say \"hi\"", "f\ng", "", "\r"});
  writer.write(std::vector<std::string_view>{""});
  writer.addField(1.99, TruncatingNumberFormat(1));
  writer.addField(std::numeric_limits<double>::infinity(), TruncatingNumberFormat(1));
  writer.addField("z");
  writer.endRow();
  EXPECT_EQ(stream->text, "");
  writer.flush();
  EXPECT_EQ(stream->text, "a;b,c;\"d;e\";\"say \"\"hi\"\"\";\"f\ng\";;\"\r\"\r\n\"\"\r\n1.9;z\r\n");
}

// Catches a failed write that goes unnoticed, is repeated, or spoils the row behind it.
TEST(CSVWriterTests, GoesOnWithAWholeRowAfterAFailure) {
  const auto stream = std::make_shared<SmallDisk>(9);
  CSVWriter writer(stream);
  const auto row = std::vector<std::string_view>{"12", "34"};
  writer.write(row);
  writer.flush();
  writer.write(row);
  EXPECT_THROW(writer.flush(), CSVError);
  stream->room = 100;
  writer.write(row);
  writer.flush();
  EXPECT_EQ(stream->text, "12,34\n12,\n12,34\n");
}

// Catches blocks that end within a row, and rows longer than the buffer.
TEST(CSVWriterTests, HandsOverBlocksOfWholeRows) {
  const auto stream = std::make_shared<SmallDisk>(1 << 20);
  CSVWriter writer(stream);
  const std::string field(3 * CSVWriter::kBlockBytes, '"');
  writer.addField("a");
  writer.addField(field);
  EXPECT_EQ(stream->text, "");
  writer.endRow();
  EXPECT_EQ(stream->text.size(), 2 + 2 + 2 * field.size() + 1);
}

// Catches an end judged without the rest of the file, and a scalar cut at a block's border.
TEST(CSVWriterTests, FindsTheLastScalarOfAFile) {
  const testing::ScopedDir folder;
  const auto isNewline = [](char32_t scalar) { return scalar == U'\n'; };
  const std::string block(256 * 1024 - 1, 'a');
  const struct {
    std::string text;
    std::optional<char32_t> scalar;
  } cases[] = {
      {"", std::nullopt},
      {"a", U'a'},
      {"\n", U'\n'},
      {"é", U'é'},
      {"1,2\u2028", U'\u2028'},
      {"a😀", U'😀'},
      {block + "😀b", U'b'},
      {block + "\xF0\x9F\x98"
               "b",
       std::nullopt},
      {"\xFFok", std::nullopt},
      {"\xED\xA0\x80x", std::nullopt},
      {"\xC0\x80x", std::nullopt},
      {"a\xE2\x82", std::nullopt},
      {"\x80\x80\x80\x80", std::nullopt},
  };
  for (const auto& [text, scalar] : cases) {
    const auto file = folder.write("file", text);
    EXPECT_EQ(lastScalarOfFile(file, isNewline), scalar) << text.substr(0, 20);
  }
  EXPECT_EQ(lastScalarOfFile(folder.path(), isNewline), std::nullopt);
  EXPECT_EQ(lastScalarOfFile(folder.path() / "missing", isNewline), std::nullopt);
}

}  // namespace
}  // namespace ombrix::platform

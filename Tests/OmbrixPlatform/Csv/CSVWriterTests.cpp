#include "OmbrixPlatform/Csv/CSVWriter.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace ombrix::platform {
namespace {

std::string textOf(const OutputStream& stream) {
  return std::string(platform::textOf(stream.data().value()));
}

// Catches quotes too many or too few, a line for a row that would be none, a field for a number
// without a text, and bytes that leave before they are asked for.
TEST(CSVWriterTests, QuotesOnlyWhereNeeded) {
  const auto stream = std::shared_ptr(OutputStream::toMemory());
  CSVWriter writer(stream, {.delimiter = ';', .newline = "\r\n"});
  writer.write(std::vector<std::string_view>{"a", "b,c", "d;e", "say \"hi\"", "f\ng", "", "\r"});
  writer.write(std::vector<std::string_view>{""});
  writer.addField(1.99, TruncatingNumberFormat(1));
  writer.addField(std::numeric_limits<double>::infinity(), TruncatingNumberFormat(1));
  writer.addField("z");
  writer.endRow();
  EXPECT_EQ(textOf(*stream), "");
  writer.flush();
  EXPECT_EQ(textOf(*stream),
            "a;b,c;\"d;e\";\"say \"\"hi\"\"\";\"f\ng\";;\"\r\"\r\n\"\"\r\n1.9;z\r\n");
}

/// Takes a number of bytes and then no more, as a pipe may: what was taken cannot be taken back.
class NarrowPipe final : public OutputStream {
 public:
  explicit NarrowPipe(bool tells) : tells_(tells) {}
  FileResult<void> open() override {
    setStatus(StreamStatus::open);
    return {};
  }
  void close() noexcept override { setStatus(StreamStatus::closed); }
  FileResult<void> write(DataView bytes) override {
    const auto taken = bytes.first(std::min(bytes.size(), room));
    text += platform::textOf(taken);
    room -= taken.size();
    if (taken.size() == bytes.size()) return {};
    return fail(FileError(EAGAIN, "write"), tells_ ? taken.size() : 0);
  }
  bool resume(std::size_t bytes) noexcept override {
    reopen();
    return tells_ && bytes == 0;
  }

  std::string text;
  std::size_t room = 0;

 private:
  bool tells_;
};

// Catches a part of a row that spoils the row behind it, is taken for a row, or is counted as one,
// where it cannot be taken back; quoted line ends taken for ends of rows.
TEST(CSVWriterTests, GoesOnBehindATornRowThatStays) {
  const struct {
    std::size_t room;
    bool tells;
    std::string_view text;
    std::uint64_t lines;
  } cases[] = {
      {9, true, "12,34\n12,?\n12,34\n", 2},
      {6, true, "12,34\n12,34\n", 2},
      {0, true, "12,34\n", 1},
      {9, false, "12,34\n12,?\n12,34\n", 1},
  };
  const auto row = std::vector<std::string_view>{"12", "34"};
  for (const auto& [room, tells, text, lines] : cases) {
    const auto pipe = std::make_shared<NarrowPipe>(tells);
    pipe->room = room;
    CSVWriter writer(pipe, {.tornRowEnd = "?"});
    writer.write(row);
    writer.write(row);
    EXPECT_THROW(writer.flush(), CSVError);
    pipe->room = 100;
    writer.write(row);
    writer.flush();
    EXPECT_EQ(pipe->text, text);
    EXPECT_EQ(writer.linesWritten(), lines) << text;
  }
  const auto pipe = std::make_shared<NarrowPipe>(true);
  pipe->room = 5;
  CSVWriter writer(pipe);
  writer.write(std::vector<std::string_view>{"a\nb", "c"});
  EXPECT_THROW(writer.flush(), CSVError);
  EXPECT_EQ(writer.linesWritten(), 0U);
}

// Catches blocks that end within a row, and rows longer than the buffer.
TEST(CSVWriterTests, HandsOverBlocksOfWholeRows) {
  const auto stream = std::shared_ptr(OutputStream::toMemory());
  CSVWriter writer(stream);
  const std::string field(3 * CSVWriter::kBlockBytes, '"');
  writer.addField("a");
  writer.addField(field);
  EXPECT_EQ(textOf(*stream), "");
  writer.endRow();
  EXPECT_EQ(textOf(*stream).size(), 2 + 2 + 2 * field.size() + 1);
}

}  // namespace
}  // namespace ombrix::platform

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using testing::ScopedDir;

std::string readAll(InputStream& stream, std::size_t block) {
  std::string text;
  Data buffer(block);
  while (true) {
    const auto count = stream.read(buffer);
    if (!count) return "error: " + std::string(count.error().what());
    if (*count == 0) return text;
    text.append(textOf(buffer).substr(0, *count));
  }
}

// Catches bytes lost between blocks and a status that does not follow.
TEST(StreamTests, ReadsFilesAndMemoryInBlocks) {
  const ScopedDir dir;
  const auto path = dir.write("track.csv", "0123456789").string();
  const auto bytes = bytesOf("0123456789");
  const auto check = [](const std::unique_ptr<InputStream>& stream) {
    EXPECT_EQ(stream->read({}).error().code(), EBADF);
    ASSERT_TRUE(stream->open());
    std::array<std::byte, 1> first{};
    EXPECT_EQ(stream->read(first), 1U);
    EXPECT_EQ(textOf(stream->remainingBytes().value_or(bytesOf("123456789"))), "123456789");
    EXPECT_EQ(readAll(*stream, 4), "123456789");
    EXPECT_EQ(stream->streamStatus(), StreamStatus::atEnd);
    stream->close();
    EXPECT_TRUE(stream->open() && !stream->read({}));
    EXPECT_EQ(stream->streamStatus(), StreamStatus::closed);
  };
  check(InputStream::withURL(URL::fileURL(path)));
  check(InputStream::withData(Data(bytes.begin(), bytes.end())));
  check(InputStream::withView(bytes));
}

// Catches sources that are "opened" although nothing can be read from them.
TEST(StreamTests, RefusesWhatCannotBeRead) {
  const ScopedDir dir;
  std::filesystem::create_symlink("nowhere", dir.path() / "dangling");
  const struct {
    std::string path;
    int code;
  } cases[] = {
      {dir.path() / "missing", ENOENT},
      {dir.path() / "dangling", ENOENT},
      {dir.path(), EISDIR},
      {dir.path() / std::string(300, 'x'), ENAMETOOLONG},
      {dir.path() / std::string("a\0b", 3), EINVAL},
      {"", ENOENT},
  };
  for (const auto& [path, code] : cases) {
    const auto stream = InputStream::withPath(path);
    const auto opened = stream->open();
    ASSERT_FALSE(opened) << path;
    EXPECT_EQ(opened.error().code(), code) << path;
    EXPECT_EQ(stream->streamStatus(), StreamStatus::error);
    EXPECT_EQ(stream->streamError(), opened.error());
    EXPECT_EQ(stream->read({}).error(), opened.error());
  }
  EXPECT_STREQ(FileError(ENOENT, "open", "/a").what(),
               "Could not open \"/a\": No such file or directory");
}

// Catches appending that overwrites, and replacing that leaves an old tail.
TEST(StreamTests, AppendsReplacesOrCollects) {
  const ScopedDir dir;
  const auto write = [&](OutputFileMode mode, std::string_view text) {
    const auto stream =
        OutputStream::withURL(URL::fileURL(dir.path().string()).appendingPathComponent("f"), mode);
    ASSERT_TRUE(stream->open());
    ASSERT_TRUE(stream->write(bytesOf(text)));
    stream->close();
    EXPECT_EQ(stream->write(bytesOf(text)).error().code(), EBADF);
  };
  write(OutputFileMode::append, "one,");
  write(OutputFileMode::append, "two");
  EXPECT_EQ(dir.read("f"), "one,two");
  write(OutputFileMode::replace, "3");
  EXPECT_EQ(dir.read("f"), "3");
  EXPECT_FALSE(OutputStream::withPath(dir.path() / "no/f", OutputFileMode::append)->open());
  const auto memory = OutputStream::toMemory();
  EXPECT_FALSE(memory->write(bytesOf("early")));
  ASSERT_TRUE(memory->open() && memory->write(bytesOf("ab")) && memory->write(bytesOf("c")));
  memory->close();
  EXPECT_EQ(textOf(memory->data().value()), "abc");
}

// Catches a write error that is swallowed: the disk is full.
TEST(StreamTests, ReportsAFullDisk) {
  const auto stream = OutputStream::withPath("/dev/full", OutputFileMode::append);
  ASSERT_TRUE(stream->open());
  EXPECT_EQ(stream->write(bytesOf("x")).error().code(), ENOSPC);
  EXPECT_EQ(stream->streamStatus(), StreamStatus::error);
}

// Catches short writes taken for whole ones, and a descriptor closed behind its owner's back.
TEST(StreamTests, CompletesShortWritesOnANonBlockingSocket) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
  const std::string text(3'000'000, 'x');
  std::jthread reader([&] {
    const auto in = InputStream::withDescriptor(ends[1], DescriptorOwnership::owned);
    ASSERT_TRUE(in->open());
    EXPECT_EQ(readAll(*in, 4096).size(), text.size());
  });
  auto out = OutputStream::withDescriptor(ends[0], DescriptorOwnership::borrowed);
  ASSERT_TRUE(out->open());
  EXPECT_TRUE(out->write(bytesOf(text)));
  out.reset();
  EXPECT_EQ(close(ends[0]), 0);
}

}  // namespace
}  // namespace ombrix::platform
